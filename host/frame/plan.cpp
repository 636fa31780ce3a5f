#include "host/frame/plan.h"

#include "host/files/atomic_file.h"
#include "host/files/pattern.h"
#include "host/frame/project.h"

#include <algorithm>
#include <utility>

namespace host::frame {
namespace {

// Why a source cannot be read, "" when it can.
std::string read_error(files::Headers& headers, const files::Source& source) {
  const files::Header& header = headers.get(source.path);
  if (!header.error.empty()) return header.error;
  if (header.find(source.layer)) return "";
  return source.path + ": has no layer \"" + source.layer + "\"";
}

}  // namespace

Planner::Planner(const shot::Composition& composition, double scale, std::string output)
    : composition_(composition),
      output_(std::move(output)),
      project_(make_project(composition, scale, headers_)),
      keys_(composition, project_) {}

PlannedFile Planner::planned_read(const node::Node& node, const Instance& instance,
                                  const files::Source& source) {
  PlannedFile file;
  file.node = node.name;
  file.frame = instance.frame;
  file.path = source.path;
  const std::string error = read_error(headers_, source);
  if (!error.empty()) file.error = frame_place(composition_, instance.node, instance.frame) + error;
  return file;
}

FramePlan Planner::frame(int64_t frame) {
  FramePlan plan;
  plan.frame = frame;
  plan.writes = writes(frame);
  try {
    const KeyedFrame keyed = keys_.frame(composition_.outputs, frame);
    const std::vector<Instance>& instances = keyed.graph.instances;
    for (size_t i = 0; i < instances.size(); ++i) {
      const node::Node& node = composition_.nodes[static_cast<size_t>(instances[i].node)];
      const std::string result = node.name + " @ " + std::to_string(instances[i].frame);
      if (!made_.insert(keyed.keys[i]).second) {
        plan.reuses.push_back(result);
        continue;
      }
      plan.computes.push_back(result);
      const auto source = node.type->operation->source(node.call_at(instances[i].frame, project_));
      if (source) plan.reads.push_back(planned_read(node, instances[i], *source));
    }
    const bool complete = std::all_of(plan.reads.begin(), plan.reads.end(),
                                      [](const PlannedFile& file) { return file.error.empty(); });
    // Windows need every header, and say what else is wrong with the frame.
    if (complete) instance_extents(composition_, keyed.graph, project_);
  } catch (const FrameError& error) {
    plan.error = error.what();
  }
  return plan;
}

std::vector<PlannedFile> Planner::writes(int64_t frame) const {
  std::vector<PlannedFile> files;
  for (const int output : composition_.outputs) {
    const node::Node& node = composition_.nodes[static_cast<size_t>(output)];
    std::string path;
    try {
      const auto file = node.type->operation->output(node.call_at(frame, project_));
      if (file) path = file->path;
    } catch (const std::exception&) {
      continue;  // rendering says what is wrong
    }
    if (!output_.empty()) path = files::frame_path(output_, frame);
    if (!path.empty()) files.push_back({node.name, frame, path, "", files::would_replace(path)});
  }
  return files;
}

std::vector<Extent> Planner::extents(int64_t frame) const {
  const FrameGraph graph = frame_graph(composition_, composition_.outputs, frame, project_);
  const std::vector<Extent> each = instance_extents(composition_, graph, project_);
  std::vector<Extent> extents(composition_.nodes.size(), Extent{project_.format, {}});
  for (size_t i = 0; i < each.size(); ++i) {
    extents[static_cast<size_t>(graph.instances[i].node)] = each[i];
  }
  return extents;
}

bool can_render(const FramePlan& plan, Existing existing) {
  const auto unreadable = [](const PlannedFile& file) { return !file.error.empty(); };
  const auto in_the_way = [existing](const PlannedFile& file) {
    return existing == Existing::refuse && file.exists;
  };
  return plan.error.empty() && std::none_of(plan.reads.begin(), plan.reads.end(), unreadable) &&
         std::none_of(plan.writes.begin(), plan.writes.end(), in_the_way);
}

}  // namespace host::frame
