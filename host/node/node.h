#pragma once

#include "host/base/extent.h"
#include "host/decode/sources.h"
#include "host/node/identity.h"
#include "host/node/image.h"
#include "host/node/knob.h"
#include "host/node/render_context.h"
#include "host/writer/image_writer.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace host::node {

struct Node;

// What all nodes of a render share, already scaled to it.
struct Project {
  Format format;            // the composition's, at the render's scale
  double scale = 1;         // --proxy
  int64_t first_frame = 1;  // of the composition, not of the frames asked for
  int64_t last_frame = 1;
  std::string folder;  // that file knobs are relative to
  plates::Headers* headers = nullptr;
  bool by_content = false;  // --content: files that are read are known by their bytes, not by size and date
  bool operator==(const Project&) const = default;
};

// A file knob's path, "~" and $NAME replaced, made absolute against the project's folder; a frame
// pattern stays in it. Throws std::runtime_error that names a variable that is not set.
std::string resolved_path(const Project& project, const std::string& file);

// One node at one frame: what every question to an Operation is about. A view.
struct Call {
  const Node& node;
  Knobs knobs;  // at `frame`, in pixels of the render's scale
  int64_t frame = 0;
  const Project& project;
};

// An image that a node reads: the input's position and the frame.
struct Request {
  int input = 0;
  int64_t frame = 0;
};

// What nodes of one type do. An operation has no state: one object serves every node of its type,
// and each answer follows from the call alone, so that results can be cached and reused. The renderer
// asks in this order, a frame: reads, identify, source (ahead of time); extent; render (only what is
// not cached). Anything but `reads` and `render` usually has a default that fits.
//
// Failure: throw std::runtime_error with what went wrong and what was expected; the renderer puts
// file, node and frame in front. GL thread only.
class Operation {
 public:
  Operation() = default;
  virtual ~Operation() = default;
  Operation(const Operation&) = delete;
  Operation& operator=(const Operation&) = delete;

  // What is wrong with knobs whatever the frame: texts that mean nothing here, above all. One line
  // each that begins with the knob, as in: knob "output": expected ..., found "rgba.alhpa". Asked once,
  // when a composition is read, which is then refused. Default: nothing.
  virtual std::vector<std::string> check(const Knobs& knobs) const;

  // Which images it needs, in the order in which `extent` and `render` get them. A request for an
  // input that is not connected is answered by an image without pixels, in the project's format.
  // Default: every input of the node, connected or not, at the call's frame, so that position i is
  // input i.
  virtual std::vector<Request> reads(const Call& call) const;

  // Adds to the result's key what it depends on beside the type, the knobs' values at the frame, the
  // project's format and the keys of what it reads, which are in it already: a frame number that the
  // pixels depend on, knobs at other times, a file's date. Default: nothing.
  virtual void identify(const Call& call, Identity& identity) const;

  // The file that `render` will fetch, if any; asked frames ahead so that it can be decoded in time.
  // Default: none.
  virtual std::optional<plates::Source> source(const Call& call) const;

  // How the colour of the file that it reads is encoded and taken, for `quorvel info` and notices.
  // Default: it reads none.
  virtual std::optional<plates::ReadColor> color(const Call& call) const;

  // Format and data window of the result, given those of what it reads. Default: those of the first.
  virtual Extent extent(const Call& call, std::span<const Extent> inputs) const;

  // What a person should be told of the call's frame though it stops nothing. Default: nothing.
  virtual std::string notice(const Call& call) const;

  // The result, with `extent` as told by extent(). May return an input as it is, which shares its
  // texture and costs nothing.
  virtual Image render(const Call& call, std::span<const Image> inputs, const Extent& extent,
                       RenderContext& context) const = 0;

  // Whether the result's alpha is the coverage of its colour, given what `render` was given. Default:
  // what holds for the first of them, true without any.
  virtual bool coverage(const Call& call, std::span<const Image> inputs) const;

  // What the result brings along beside its pixels, given what `render` was given; null: nothing. All that it
  // depends on is in the key, as for pixels. Default: that of the input that the type changes, at the call's
  // frame if it is read there, else of the first image read.
  virtual files::MetadataPtr metadata(const Call& call, std::span<const Image> inputs) const;

  // For node types that write files: where this frame's image goes. Default: nowhere.
  virtual std::optional<writer::OutputFile> output(const Call& call) const;
};

struct InputSpec {
  std::string name;
  bool required = true;
  std::string help;
};

// A row of the catalogue: everything that is known of a node type.
struct NodeType {
  std::string name;    // as a composition gives it: "blur"
  std::string family;  // "filter"
  std::string help;    // one or two sentences, shown to people
  std::vector<InputSpec> inputs;
  std::vector<KnobSpec> knobs;
  std::shared_ptr<const Operation> operation;
  bool takes_layers = false;  // further inputs beside its one, each under a name that the composition gives
  bool repeats_last_input = false;  // any number of images under the last input's name
  bool writes_files = false;        // output() tells where; such nodes are rendered by default
  bool takes_pending = false;       // may be handed images with a pending transform
  // The input that comes back changed, which shows where mask, mix and channels hold the result back;
  // -1: the type makes images, chooses among them or places them in another format.
  int changes = 0;
  std::string changed_channels = "rgba";  // the default of "channels"
  bool reads_pixels = true;               // false: looks at its inputs' extents alone, they are not rendered
};

// A node of a composition. inputs[i] is the node connected to input i (a position in the
// composition, upstream first), or -1; there are more than the type has when its last one repeats.
struct Node {
  std::string name;  // where it depends on a view the view's is part of it: "plate.left"
  const NodeType* type = nullptr;
  std::vector<int> inputs;
  std::vector<std::string> layers;  // of a type that takes them, the names of its inputs; "": the main image
  std::vector<KnobValue> knobs;     // one a KnobSpec of the type, in its order
  bool disabled = false;            // nobody reads it: its readers are connected to its first input
  std::string view;                 // "" when it serves all

  Call call_at(int64_t frame, const Project& project) const;
  bool animated() const;           // any of its knobs
  std::string given_name() const;  // as the composition's text has it: "plate"
};

}  // namespace host::node
