#pragma once

#include "host/base/extent.h"
#include "host/node/node.h"

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace host::shot {

// A composition that cannot be used. The text has one line a problem, each with file, node and knob
// as far as they apply, what was expected and what was found:
//   shot.json: node "soft": unknown type "blurr" (did you mean "blur"?)
//   shot.json: node "soft": knob "size": expected a number of at least 0, found -3
class CompositionError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A node as the text has it, before disabled ones are passed over and views are taken apart.
struct WrittenNode {
  std::string name;
  const node::NodeType* type = nullptr;
  std::vector<std::string> inputs;  // by position, "" where nothing is connected
  bool disabled = false;
};

// A checked composition: every node has a type, its inputs exist, required ones are connected, there
// is no cycle, and each knob has a value of its kind within its range. Immutable after reading; nodes
// refer to types of the catalogue, images to nodes, so it outlives the render.
struct Composition {
  std::string file;              // as given, for messages
  std::filesystem::path folder;  // that its file knobs are relative to
  Format format;
  std::vector<int64_t> frames;       // those to render unless asked otherwise; never empty
  std::vector<node::Node> nodes;     // upstream first: an input's position is below its node's
  std::vector<WrittenNode> written;  // upstream first
  std::vector<int> outputs;          // positions of the nodes to render, in the order given
  std::vector<std::string> views;    // those rendered; nodes that depend on one are there once a view
  bool quick_look = false;           // the outputs were named by --node: they need not write files

  // Position of a node by name ("plate.left" where it depends on a view), -1 when there is none.
  int find(std::string_view name) const;
};

// What a person asks for beside what the text says; nothing by default.
struct Asked {
  std::vector<std::string> settings;  // --set: knobs, each "node.knob=VALUE"
  std::vector<std::string> nodes;     // --node: what to render in place of the outputs
  std::vector<std::string> views;     // --views: those to render
};

// Reads a file, or with "-" the standard input, whose paths are relative to the current folder. Throws
// CompositionError, also when it cannot be read.
Composition read_composition(const std::filesystem::path& file, const Asked& asked = {});

// Reads a text, as if it stood in that file. The text is JSON with // and /* */ comments:
//   {"format": {"width": 960, "height": 540, "pixel_aspect": 1}, "frames": "1-24",
//    "nodes": [{"name": "soft", "type": "blur", "inputs": {"image": "plate"}, "knobs": {"size": 8}}],
//    "output": "out"}
// `inputs` may be a text, for the first input, or a list of texts where an input repeats.
// A node may have a "comment", and "disabled": true connects its readers to its first input instead.
// `output` is a node's name or a list; by default every node that writes files, or else every node
// that nothing reads. A knob is a number, true or false, a text, a list, or keys:
//   {"keys": [[1, 0.0, "smooth"], [24, 1.0]], "extrapolate": false}
// Interpolations: step, linear (the default), smooth (never beyond its neighbours), cubic, spline,
// flat, and [frame, value, "slopes", in, out].
// With "views": ["left", "right"] paths may hold %V, the view's name, or %v, its first letter.
Composition parse_composition(std::string_view text, const std::filesystem::path& file,
                              const Asked& asked = {});

// The seven names, by the library's number of the kind.
const std::vector<std::string>& interpolation_names();

}  // namespace host::shot
