#pragma once

#include "host/base/spans.h"
#include "host/draw/frame_image.h"
#include "host/draw/node_use.h"
#include "host/gpu/gpu_context.h"
#include "host/render/renderer.h"
#include "host/shot/composition.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace host::live::session {

// How a page wants its pixels.
enum class Pixels : uint8_t { rgba16f, r11g11b10f, rgba8 };

// An image that somebody wants to see.
struct Wish {
  uint64_t id = 0;      // of this client, never used twice
  char slot = 'a';      // in which of the client's places it is shown
  int64_t version = 0;  // of the composition; 0: the newest when it is drawn
  std::string node;     // "": the first output
  int64_t frame = 0;
  double scale = 1;  // above 0, at most 1
  draw::Area area = draw::Area::format;
  Pixels pixels = Pixels::rgba16f;
};

// Frames of the newest version to compute while nobody waits for anything, nearest to `frame` first, of two
// as near the one in direction 1 or -1.
struct Ahead {
  std::string node;  // "": the first output
  double scale = 1;
  int64_t first = 0, last = 0;
  int64_t frame = 0;
  int direction = 1;
};

using draw::NodeUse;

// The answer to a wish: the image, or why there is none.
struct Drawn {
  Wish wish;
  int64_t version = 0;  // that was drawn
  std::string node;     // likewise
  draw::FrameImage image;
  bool cached = false;  // nothing had to be drawn
  double ms = 0;        // from the wish to the pixels
  std::string error;    // in the words of the command line, without the file, the node and the frame
  std::string error_node;
  std::vector<NodeUse> uses;  // upstream first
};

// Told what becomes of things. Called one at a time, on whatever thread, never under a lock of the session;
// must return soon, and may call the session but for what waits for pixels.
class Listener {
 public:
  virtual ~Listener() = default;

  virtual void drawn(const std::string& client, Drawn drawn) = 0;

  // Frames whose images can be had without drawing, as first and last of each run, of what is asked for
  // ahead.
  virtual void cached(int64_t version, const std::string& node, double scale,
                      std::vector<std::pair<int64_t, int64_t>> frames) = 0;

  // Bytes of images.
  virtual void memory(uint64_t held, uint64_t budget) = 0;

  // What a person should know of what was read, each text once.
  virtual void notice(const std::string& text) = 0;

  // The device, or its driver, let go of everything; once it has been opened anew `lost` is false. What was
  // asked for is drawn again.
  virtual void device_lost(bool lost, const std::string& message) = 0;
};

// A version, node or client that the session does not have; the text names it.
class Unknown : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

enum class Kind : uint8_t { nan, infinite, negative };

// A pixel of the full-size format, y up, and the first node from the top of the graph that made such a one.
struct Found {
  bool found = false;
  int64_t x = 0, y = 0;
  std::string made_by;
};

// The render side of a page: draws what is wished on the process's thread for drawing, the newest wish first,
// and stops within one draw when nobody wants the result any more; what was finished stays cached. Clients
// take turns. Then come floats and searches, then frames ahead as far as the memory budget goes without
// giving up a nearer one. Idle, it costs nothing: there are no timers. Thread-safe.
class Session {
 public:
  using CompositionPtr = std::shared_ptr<const shot::Composition>;
  using GiveUp = std::function<bool()>;  // asked every 50 ms by who waits; may be empty

  // Opens the device. The listener outlives the session. Throws NoGpu, Forked, ShaderError, and
  // std::invalid_argument when others of this process render on another device.
  Session(const render::RendererOptions& options, const gpu::DeviceChoice& device, Listener& listener);
  ~Session();  // ends within a tenth of a second what is drawn
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // The newest version from now on, with a number above those before. The last 32 stay known.
  void set_composition(int64_t version, CompositionPtr composition);

  // Replaces what this client wishes, best first. What is being drawn goes on if its id is still listed. It
  // ends at once where another version or node is wished in its place; where another frame is, it is finished
  // and told all the same, unless this client has been given an image in the last 150 ms that took over 200:
  // scrubbing shows every frame it can. Ids that were answered are not answered again.
  void wish(const std::string& client, std::vector<Wish> wishes, const std::optional<Ahead>& ahead);

  // Files that are read have changed. What is asked for from now on is made of them as they are now, and
  // frames ahead are looked at again.
  void look_again();

  // The client is gone; nothing more is told to it.
  void leave(const std::string& client);

  // While paused nothing is computed; what is cached is still shown.
  void pause(bool paused);

  // A node's image at full size; version 0: the newest, node "": the first output. The last few are kept.
  // Throws Unknown, Interrupted when `give_up` says so or the session ends, std::runtime_error while paused
  // and not cached, and what Renderer::read throws.
  draw::FrameImage floats(int64_t version, const std::string& node, int64_t frame, const GiveUp& give_up,
                          draw::Area area = draw::Area::format);

  // The first such pixel, by rows from the top. Throws as floats.
  Found find(Kind kind, int64_t version, const std::string& node, int64_t frame, const GiveUp& give_up);

  // The last seconds as a Chrome trace (JSON), with rows for drawing, decoding, read-back and encoding. Who
  // encodes for a page adds to the spans what that took.
  std::string trace(double seconds) const;
  Spans& spans();

  // Waits for its turn on the thread for drawing.
  draw::Stats stats();

  // Whether nothing is queued, drawn or on its way.
  bool idle() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace host::live::session
