#include "host/plan/targets.h"

#include "host/base/suggest.h"
#include "host/files/path.h"
#include "host/files/pattern.h"
#include "host/writer/container.h"

#include <algorithm>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <utility>

namespace host::plan {
namespace {

std::string node_place(const shot::Composition& composition, int node) {
  return composition.file + ": node \"" + composition.nodes[static_cast<size_t>(node)].name + "\": ";
}

}  // namespace

std::vector<int> images_of(const shot::Composition& composition) {
  std::vector<int> images = composition.outputs;
  for (const int output : composition.outputs) {
    const node::Node& node = composition.nodes[static_cast<size_t>(output)];
    for (size_t layer = 1; layer < node.layers.size(); ++layer)
      if (node.inputs[layer] >= 0) images.push_back(node.inputs[layer]);
  }
  return images;
}

Targets::Targets(const shot::Composition& composition, const node::Project& project,
                 const std::vector<std::string>& given)
    : composition_(composition), project_(project) {
  for (const std::string& text : given) give(text);
}

// Each once, however many views it is made for.
std::vector<std::string> Targets::output_names() const {
  std::vector<std::string> names;
  for (const int output : composition_.outputs) {
    const std::string name = composition_.nodes[static_cast<size_t>(output)].given_name();
    if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
  }
  return names;
}

// A name stands before the first "=" unless what does so is a folder or has an ending.
void Targets::give(const std::string& text) {
  const size_t equals = text.find('=');
  const std::string front = text.substr(0, equals);
  const std::vector<std::string> names = output_names();
  const bool named = equals != std::string::npos;
  if (named && std::find(names.begin(), names.end(), front) != names.end()) {
    give_path(front, text.substr(equals + 1));
    return;
  }
  if (named && front.find_first_of("/.") == std::string::npos) {
    const auto is_front = [&](const node::Node& node) { return node.given_name() == front; };
    if (std::any_of(composition_.nodes.begin(), composition_.nodes.end(), is_front)) {
      throw TargetError("--output: node \"" + front + "\" is no output; --node " + front + " makes it one");
    }
    throw TargetError("--output: there is no node \"" + front + "\"" + did_you_mean(front, names));
  }
  if (names.size() != 1) {
    throw TargetError("--output: " + composition_.file + " has " + std::to_string(names.size()) +
                      " outputs; say which by NODE=PATH, or render one alone by --node");
  }
  give_path(names[0], text);
}

void Targets::give_path(const std::string& name, const std::string& path) {
  for (const int output : composition_.outputs) {
    const node::Node& node = composition_.nodes[static_cast<size_t>(output)];
    if (node.given_name() != name) continue;
    if (files::has_view(path) && node.view.empty()) {
      std::string text = "--output: " + path;
      throw TargetError(text.append(": node \"").append(name).append("\" depends on no view"));
    }
    given_[output] = node.view.empty() ? path : files::view_path(path, node.view);
  }
}

std::string Targets::quick_look_path(const node::Node& node) const {
  std::string name = std::filesystem::path(composition_.file).stem().string() + "." + node.name + ".####.exr";
  for (char& letter : name) {
    if (letter == '/') letter = '_';
  }
  return (composition_.folder / name).string();
}

std::string Targets::place(int node) const {
  return given_.count(node) == 0 ? node_place(composition_, node) + "knob \"file\": " : "--output: ";
}

Target Targets::target(int output, int64_t frame) const {
  const node::Node& node = composition_.nodes[static_cast<size_t>(output)];
  Target target{output, {}};
  const auto given = given_.find(output);
  const bool by_hand = given != given_.end();
  try {
    if (auto file = node.type->operation->output(node.call_at(frame, project_))) {
      target.file = std::move(*file);
    } else if (!by_hand && !composition_.quick_look) {
      return target;
    } else {
      target.file.path = files::frame_path(quick_look_path(node), frame);
    }
  } catch (const std::exception& error) {
    // What -o replaces may be wrong or missing.
    if (!by_hand) throw TargetError(node_place(composition_, output) + error.what());
  }
  try {
    if (by_hand) target.file.path = files::frame_path(files::expanded(given->second), frame);
  } catch (const std::exception& error) {
    throw TargetError(place(output) + error.what());
  }
  target.file.scale = project_.scale;
  if (const std::string reason = writer::unsupported_reason(target.file.path); !reason.empty()) {
    throw TargetError(place(output) + target.file.path + ": " + reason);
  }
  if (const std::string wrong = writer::wrong_setting(target.file); !wrong.empty()) {
    throw TargetError(node_place(composition_, output) + wrong);
  }
  return target;
}

std::vector<Target> Targets::at(int64_t frame) const {
  std::vector<Target> targets;
  for (const int output : composition_.outputs) {
    Target each = target(output, frame);
    if (!each.file.path.empty()) targets.push_back(std::move(each));
  }
  return targets;
}

void Targets::check_paths(size_t frames) const {
  for (const int output : composition_.outputs) {
    const auto given = given_.find(output);
    const node::Node& node = composition_.nodes[static_cast<size_t>(output)];
    if (given == given_.end() && !node.type->writes_files && !composition_.quick_look) {
      throw TargetError(node_place(composition_, output) +
                        "it writes no file; give --output or add a node of type \"write\"");
    }
    if (given != given_.end() && frames > 1 && !files::has_frame(given->second)) {
      throw TargetError("--output: " + given->second +
                        ": expected #### or %04d where the frame number is to stand");
    }
  }
}

void Targets::check(const std::vector<int64_t>& frames) const {
  check_paths(frames.size());
  std::map<std::filesystem::path, std::pair<int, int64_t>> taken;
  for (const int64_t frame : frames) {
    for (const Target& target : at(frame)) {
      const auto [first, fresh] = taken.try_emplace(files::followed(target.file.path), target.node, frame);
      if (fresh) continue;
      const auto [node, other] = first->second;
      const std::string front = place(target.node) + target.file.path + ": ";
      if (node == target.node && other != frame) {
        throw TargetError(front + "every frame would go to this file; put #### where its number is to stand");
      }
      const node::Node& writer = composition_.nodes[static_cast<size_t>(node)];
      const node::Node& second = composition_.nodes[static_cast<size_t>(target.node)];
      if (writer.view != second.view && writer.given_name() == second.given_name()) {
        throw TargetError(front + "every view would go to this file; put %V where its name is to stand");
      }
      throw TargetError(front + "frame " + std::to_string(other) + " of node \"" + writer.name +
                        "\" goes to the same file");
    }
  }
}

}  // namespace host::plan
