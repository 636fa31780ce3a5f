#pragma once

#include "host/gpu/gpu_context.h"
#include "host/gpu/gpu_thread.h"
#include "host/render/renderer.h"
#include "host/service/frame_stream.h"

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace host::service {

// A call of a renderer that is closed, or was before the call came to its end.
class Closed : public std::logic_error {
 public:
  Closed() : std::logic_error("the renderer is closed") {}
};

// A renderer that any thread may ask: it lives on the process's thread for drawing, which it shares with
// others, and each call waits there for its turn. A call says what it is of, and where that is another
// composition than the last one's, the renderer takes it over first. Thread-safe.
// `give_up`, which may be empty, is asked every 50 ms; once it says so the call ends with Interrupted, within
// a second, and the renderer can be asked again. All throw gpu::Forked, Closed, std::logic_error
// on the thread itself, and what Renderer throws; the first call that draws also NoGpu.
class SharedRenderer {
 public:
  using CompositionPtr = render::Renderer::CompositionPtr;
  using GiveUp = gpu::GpuThread::GiveUp;

  SharedRenderer(const render::RendererOptions& options, const gpu::DeviceChoice& choice);
  ~SharedRenderer();  // closes it
  SharedRenderer(const SharedRenderer&) = delete;
  SharedRenderer& operator=(const SharedRenderer&) = delete;

  // See Renderer::read. The request's `stop` is not asked.
  draw::FrameImage read(const CompositionPtr& composition, const draw::ImageRequest& request, int64_t frame,
                        const GiveUp& give_up);

  // Begins to draw a node's images for these frames, see FrameStream. It may outlive the renderer.
  std::unique_ptr<FrameStream> stream(const CompositionPtr& composition, const draw::ImageRequest& request,
                                      std::vector<int64_t> frames);

  // Plans and renders frames to files, see prepare and Renderer::run. Throws FrameError with a line a problem
  // where frames are known to fail that the options do not pass over.
  render::Outcome write(const CompositionPtr& composition, render::RunOptions options,
                        render::Progress& progress, const GiveUp& give_up);

  // Of nothing before the first call.
  draw::Stats stats();

  // Those that somebody holds; and what a person should be told, as Progress::notice has it of runs, each
  // text once. Wait for nobody, and never throw that it is closed.
  std::vector<draw::HeldImage> held();
  std::vector<std::string> take_notices();

  // Ends what is under way and gives everything back but images that are held. Any number of times.
  void close() noexcept;

  struct State;

 private:
  std::shared_ptr<State> state_;
};

}  // namespace host::service
