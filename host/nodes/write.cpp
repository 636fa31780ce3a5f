#include "host/base/suggest.h"
#include "host/files/pattern.h"
#include "host/nodes/families.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

// Where images go.

namespace host::nodes {
namespace {

using nlohmann::json;
using writer::OutputFile;
using Depth = OutputFile::Depth;

// In the order of the enumeration.
const std::vector<std::string> depth_names = {"auto", "half", "float", "8", "10", "12", "16"};

Depth depth_of(const std::string& name) {
  const auto found = std::find(depth_names.begin(), depth_names.end(), name);
  return static_cast<Depth>(found - depth_names.begin());
}

// The names that a layer's entry in "channels" gives: a set, a name or a list of names. Nothing when it is
// none of these.
std::vector<std::string> names_in(const json& value) {
  if (value == "rgba") return {"R", "G", "B", "A"};
  if (value == "rgb") return {"R", "G", "B"};
  std::vector<std::string> names;
  for (const json& each : value.is_array() ? value : json::array({value})) {
    if (!each.is_string() || each.get<std::string>().empty()) return {};
    names.push_back(each.get<std::string>());
  }
  return names.size() > 4 ? std::vector<std::string>() : names;
}

// A knob that says it for each layer, or an empty object where it says one thing for all.
json by_layer(const Knobs& knobs, const char* knob) {
  const std::string& text = knobs.text(knob);
  return text.starts_with('{') ? json::parse(text) : json::object();
}

// What a knob by layer says of one; the main image has two names there, too.
const json* entry_of(const json& object, const std::string& layer) {
  for (const std::string& name :
       layer.empty() ? std::vector<std::string>{"rgba", "image"} : std::vector{layer})
    if (const auto found = object.find(name); found != object.end()) return &*found;
  return nullptr;
}

// Knobs by layer name layers that there are.
void check_layers(const Call& call, const char* knob) {
  std::vector<std::string> known = {"rgba", "image"};
  known.insert(known.end(), call.node.layers.begin(), call.node.layers.end());
  const json object = by_layer(call.knobs, knob);
  for (const auto& [name, value] : object.items()) {
    if (std::find(known.begin(), known.end(), name) != known.end()) continue;
    throw std::runtime_error("knob \"" + std::string(knob) + "\": there is no input \"" + name + "\"" +
                             did_you_mean(name, known));
  }
}

class Write final : public Operation {
 public:
  std::vector<std::string> check(const Knobs& knobs) const override {
    std::vector<std::string> problems;
    const auto add = [&problems](const char* knob, const std::string& layer, const std::string& expected,
                                 const json& found) {
      problems.push_back("knob \"" + std::string(knob) + "\": \"" + layer + "\": expected " + expected +
                         ", found " + found.dump());
    };
    const json channels = by_layer(knobs, "channels");
    for (const auto& [layer, value] : channels.items())
      if (names_in(value).empty()) add("channels", layer, R"("rgba", "rgb" or one to four names)", value);
    const json depths = by_layer(knobs, "depth");
    for (const auto& [layer, value] : depths.items())
      if (value != "half" && value != "float") add("depth", layer, R"("half" or "float")", value);
    return problems;
  }

  Image render(const Call& /*call*/, std::span<const Image> inputs, const Extent& /*extent*/,
               RenderContext& /*context*/) const override {
    return inputs[0];
  }

  std::optional<OutputFile> output(const Call& call) const override {
    using Color = OutputFile::Color;
    OutputFile file;
    const std::string pattern = resolved_path(call.project, call.knobs.text("file"));
    if (pattern.empty()) throw std::runtime_error("knob \"file\": expected a path, found none");
    file.path = files::frame_path(pattern, call.frame);
    const std::string& depth = call.knobs.text("depth");
    if (!depth.starts_with('{')) file.depth = depth_of(depth);
    file.compression = call.knobs.text("compression");
    constexpr Color colors[] = {Color::automatic, Color::linear, Color::srgb};
    file.color = colors[call.knobs.choice("color")];
    file.alpha = call.knobs.text("channels") != "rgb";
    file.overscan = call.knobs.flag("overscan");
    file.parts = call.knobs.flag("parts");
    file.quality = static_cast<int>(call.knobs.integer("quality"));
    file.layers = layers_of(call);
    return file;
  }

 private:
  static std::vector<OutputFile::Layer> layers_of(const Call& call) {
    check_layers(call, "channels");
    check_layers(call, "depth");
    const json channels = by_layer(call.knobs, "channels"), depths = by_layer(call.knobs, "depth");
    std::vector<OutputFile::Layer> layers;
    for (size_t i = 0; i < call.node.layers.size(); ++i) {
      OutputFile::Layer& layer = layers.emplace_back();
      layer.name = call.node.layers[i];
      if (call.node.inputs[i] < 0 && i > 0)
        throw std::runtime_error("input \"" + layer.name +
                                 "\": its node is disabled, and nothing stands for it");
      if (const json* const names = entry_of(channels, layer.name)) layer.channels = names_in(*names);
      if (const json* const depth = entry_of(depths, layer.name))
        layer.depth = depth_of(depth->get<std::string>());
    }
    return layers;
  }
};

NodeType write() {
  NodeType type;
  type.name = "write";
  type.family = "in and out";
  type.help =
      "Writes its input to a file a frame, by the path's extension: EXR, with any layers, PNG, TIFF, JPEG or "
      "DPX.";
  type.inputs = {{"image", true,
                  "What to write, \"rgba\" as well; it comes out unchanged. Inputs under any other names are "
                  "layers of an EXR file."}};
  type.takes_layers = true;
  type.knobs = {
      file("file", "Path; #### or %04d stands for the frame number."),
      choice("depth", "auto", depth_names,
             "How a channel is stored: half or float in EXR, by layer as well ({\"depth\": \"float\"}), "
             "8 or 16 bits in PNG, these or float in TIFF, 8 in JPEG, 8 to 16 in DPX; auto: half, 8, 16, "
             "8 and 10.")
          .or_by_layer(),
      text("compression", "",
           "The file type's own name for it, such as zip, zip:9 (from 1, fast, to 9, small) or dwaa:45; "
           "empty: its default."),
      choice("color", "auto", {"auto", "linear", "srgb"},
             "How colour is encoded; auto: sRGB in PNG and JPEG, else linear."),
      choice("channels", "rgba", {"rgba", "rgb"},
             "Which channels to write; of EXR layers their names ({\"depth\": [\"Z\"]}: depth.Z), in the "
             "order of red, green, blue and alpha.")
          .or_by_layer(),
      flag("overscan", false, "Keeps pixels outside the format, where the file type can."),
      flag("parts", false, "Puts each layer into a part of an EXR file, with a data window of its own."),
      integer("quality", 95, "Of JPEG.").within(1, 100),
  };
  type.operation = std::make_shared<Write>();
  type.takes_pending = true;
  type.writes_files = true;
  type.changes = -1;
  return type;
}

}  // namespace

std::vector<NodeType> write_family() {
  return {write()};
}

}  // namespace host::nodes
