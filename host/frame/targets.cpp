#include "host/frame/targets.h"

#include "host/files/container.h"
#include "host/files/path.h"
#include "host/files/pattern.h"

#include <exception>
#include <map>
#include <utility>

namespace host::frame {
namespace {

std::string node_place(const shot::Composition& composition, int node) {
  return composition.file + ": node \"" + composition.nodes[static_cast<size_t>(node)].name + "\": ";
}

}  // namespace

Targets::Targets(const shot::Composition& composition, const node::Project& project, std::string output)
    : composition_(composition), project_(project), output_(std::move(output)) {}

std::string Targets::place(int node) const {
  return output_.empty() ? node_place(composition_, node) + "knob \"file\": " : "--output: ";
}

Target Targets::target(int output, int64_t frame) const {
  const node::Node& node = composition_.nodes[static_cast<size_t>(output)];
  Target target{output, {}};
  try {
    if (auto file = node.type->operation->output(node.call_at(frame, project_))) {
      target.file = std::move(*file);
    } else if (output_.empty()) {
      return target;
    }
  } catch (const std::exception& error) {
    // What -o replaces may be wrong or missing.
    if (output_.empty()) throw TargetError(node_place(composition_, output) + error.what());
  }
  try {
    if (!output_.empty()) target.file.path = files::frame_path(files::expanded(output_), frame);
  } catch (const std::exception& error) {
    throw TargetError(place(output) + error.what());
  }
  target.file.scale = project_.scale;
  if (const std::string reason = files::unsupported_reason(target.file.path); !reason.empty()) {
    throw TargetError(place(output) + target.file.path + ": " + reason);
  }
  if (const std::string wrong = files::wrong_setting(target.file); !wrong.empty()) {
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

void Targets::check_option(size_t frames) const {
  if (output_.empty()) {
    for (const int output : composition_.outputs) {
      if (composition_.nodes[static_cast<size_t>(output)].type->writes_files) continue;
      throw TargetError(node_place(composition_, output) +
                        "it writes no file; give --output or add a node of type \"write\"");
    }
    return;
  }
  if (composition_.outputs.size() != 1) {
    throw TargetError("--output: " + composition_.file + " has " +
                      std::to_string(composition_.outputs.size()) +
                      " outputs; name one of them in the composition's \"output\"");
  }
  if (frames > 1 && !files::has_frame(output_)) {
    throw TargetError("--output: " + output_ + ": expected #### or %04d where the frame number is to stand");
  }
}

void Targets::check(const std::vector<int64_t>& frames) const {
  check_option(frames.size());
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
      throw TargetError(front + "frame " + std::to_string(other) + " of node \"" +
                        composition_.nodes[static_cast<size_t>(node)].name + "\" goes to the same file");
    }
  }
}

}  // namespace host::frame
