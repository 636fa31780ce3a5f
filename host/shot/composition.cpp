#include "host/shot/composition.h"

#include "host/base/suggest.h"
#include "host/shot/asked/settings.h"
#include "host/shot/asked/views.h"
#include "host/shot/frames.h"
#include "host/shot/parse_nodes.h"
#include "host/shot/problems.h"

#include <cerrno>
#include <fstream>
#include <iostream>
#include <iterator>
#include <set>
#include <system_error>
#include <utility>

#include <nlohmann/json.hpp>

namespace host::shot {
namespace {

constexpr int64_t largest_side = 65536;

int64_t parse_side(const nlohmann::json& object, const char* name, Problems& problems) {
  const auto value = object.value(name, nlohmann::json());
  if (value.is_number_integer()) {
    const auto side = value.get<int64_t>();
    if (side >= 1 && side <= largest_side) return side;
  }
  problems.add("format: ", quoted(name) + ": expected a whole number from 1 to " +
                               std::to_string(largest_side) + ", found " + found(value));
  return 1;
}

Format parse_format(const nlohmann::json& object, Problems& problems) {
  Format format;
  if (!object.is_object()) {
    problems.add("\"format\": ", "expected an object with \"width\" and \"height\", found " + found(object));
    return format;
  }
  refuse_unknown(object, {"width", "height", "pixel_aspect"}, "format: ", problems);
  format.width = parse_side(object, "width", problems);
  format.height = parse_side(object, "height", problems);
  const auto aspect = object.value("pixel_aspect", nlohmann::json(1.0));
  if (aspect.is_number() && aspect.get<double>() > 0) {
    format.pixel_aspect = aspect.get<double>();
  } else {
    problems.add("format: ", "\"pixel_aspect\": expected a number above 0, found " + found(aspect));
  }
  return format;
}

std::vector<int64_t> parse_default_frames(const nlohmann::json& value, Problems& problems) {
  if (value.is_null()) return {1};
  if (value.is_number_integer()) return {value.get<int64_t>()};
  try {
    if (!value.is_string()) throw FramesError("expected a text such as \"1-24\", found " + found(value));
    auto frames = parse_frames(value.get<std::string>());
    if (!frames.empty()) return frames;
    problems.add("\"frames\": ", "expected at least one frame, found " + found(value));
  } catch (const FramesError& error) {
    problems.add("\"frames\": ", error.what());
  }
  return {1};
}

std::vector<WrittenNode> as_written(const std::vector<node::Node>& all) {
  std::vector<WrittenNode> written;
  written.reserve(all.size());
  for (const node::Node& node : all) {
    WrittenNode& each = written.emplace_back(WrittenNode{node.name, node.type, {}, node.disabled});
    each.inputs.reserve(node.inputs.size());
    for (const int input : node.inputs)
      each.inputs.push_back(input < 0 ? std::string() : all[static_cast<size_t>(input)].name);
  }
  return written;
}

// Connects whoever reads a disabled node to its first input. Upstream first, so one look is enough.
void bypass_disabled(std::vector<node::Node>& all) {
  for (node::Node& node : all) {
    for (int& input : node.inputs) {
      if (input < 0) continue;
      const node::Node& read = all[static_cast<size_t>(input)];
      if (read.disabled) input = read.inputs.empty() ? -1 : read.inputs[0];
    }
  }
}

// Where nothing is named: what writes files, else what nothing reads.
std::vector<int> default_outputs(const std::vector<node::Node>& all) {
  std::vector<int> writers;
  std::set<int> read;
  for (size_t i = 0; i < all.size(); ++i) {
    if (all[i].disabled) continue;
    if (all[i].type->writes_files) writers.push_back(static_cast<int>(i));
    read.insert(all[i].inputs.begin(), all[i].inputs.end());
  }
  if (!writers.empty()) return writers;
  std::vector<int> ends;
  for (int i = 0; i < static_cast<int>(all.size()); ++i) {
    if (!read.count(i) && !all[static_cast<size_t>(i)].disabled) ends.push_back(i);
  }
  return ends;
}

std::vector<int> parse_outputs(const nlohmann::json& value, const std::string& place,
                               const Composition& composition, Problems& problems) {
  if (value.is_null()) return default_outputs(composition.nodes);
  std::vector<std::string> names;
  for (const node::Node& node : composition.nodes) names.push_back(node.name);
  std::vector<int> outputs;
  for (const nlohmann::json& each : value.is_array() ? value : nlohmann::json::array({value})) {
    const auto name = each.is_string() ? each.get<std::string>() : std::string();
    const int at = composition.find(name);
    if (at < 0) {
      problems.add(place, "expected a node's name, found " + found(each) + did_you_mean(name, names));
    } else if (composition.nodes[static_cast<size_t>(at)].disabled) {
      problems.add(place, "node " + quoted(name) + " is disabled");
    } else {
      outputs.push_back(at);
    }
  }
  return outputs;
}

}  // namespace

int Composition::find(std::string_view name) const {
  for (size_t i = 0; i < nodes.size(); ++i) {
    if (nodes[i].name == name) return static_cast<int>(i);
  }
  return -1;
}

Composition parse_composition(std::string_view text, const std::filesystem::path& file, const Asked& asked) {
  Composition composition;
  composition.file = file.string();
  composition.folder = file.parent_path();
  nlohmann::json root = parse_json(text, composition.file + ": ");
  Problems problems(composition.file);
  if (!root.is_object()) {
    throw CompositionError(composition.file + ": expected an object, found " + found(root));
  }
  refuse_unknown(root, {"$schema", "format", "frames", "nodes", "output", "views", "comment"}, "", problems);
  asked::apply_settings(root, asked.settings, problems);
  composition.format = parse_format(root.value("format", nlohmann::json()), problems);
  composition.frames = parse_default_frames(root.value("frames", nlohmann::json()), problems);
  composition.views = asked::parse_views(root.value("views", nlohmann::json()), asked.views, problems);
  composition.nodes = parse_nodes(root.value("nodes", nlohmann::json()), problems);
  if (!problems.any()) composition.nodes = upstream_first(std::move(composition.nodes), problems);
  if (!problems.any()) {
    composition.written = as_written(composition.nodes);
    bypass_disabled(composition.nodes);
    composition.quick_look = !asked.nodes.empty();
    composition.outputs =
        composition.quick_look
            ? parse_outputs(asked.nodes, "--node: ", composition, problems)
            : parse_outputs(root.value("output", nlohmann::json()), "\"output\": ", composition, problems);
    asked::spread_over_views(composition, problems);
  }
  if (!problems.any() && composition.outputs.empty()) problems.add("\"nodes\": ", "all of them are disabled");
  if (problems.any()) throw CompositionError(problems.text());
  return composition;
}

Composition read_composition(const std::filesystem::path& file, const Asked& asked) {
  if (file == "-") {
    const std::string text{std::istreambuf_iterator<char>(std::cin), {}};
    return parse_composition(text, "standard input", asked);
  }
  std::ifstream stream(file, std::ios::binary);
  if (!stream) {
    throw CompositionError(file.string() + ": cannot be opened: " + std::generic_category().message(errno));
  }
  const std::string text{std::istreambuf_iterator<char>(stream), {}};
  if (stream.bad()) throw CompositionError(file.string() + ": cannot be read");
  return parse_composition(text, file, asked);
}

}  // namespace host::shot
