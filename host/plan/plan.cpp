#include "host/plan/plan.h"

#include "host/files/path.h"
#include "host/frame/frame_notices.h"
#include "host/frame/project.h"
#include "host/plan/obstacles.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <stdexcept>
#include <utility>

namespace host::plan {
namespace {

constexpr int64_t every_device_takes = 16384;  // pixels a side of a texture, by the GL standard

std::string too_large_text(const Box& window) {
  return "an image of " + std::to_string(box_width(window)) + " x " + std::to_string(box_height(window)) +
         " pixels is larger than the device's textures";
}

std::vector<bool> upstream_of_outputs(const shot::Composition& composition) {
  std::vector<bool> wanted(composition.nodes.size());
  for (const int output : composition.outputs) wanted[static_cast<size_t>(output)] = true;
  for (size_t at = wanted.size(); at-- > 0;) {
    if (!wanted[at]) continue;
    for (const int input : composition.nodes[at].inputs) {
      if (input >= 0) wanted[static_cast<size_t>(input)] = true;
    }
  }
  return wanted;
}

void add_problem(const std::string& text, std::vector<std::string>& problems) {
  if (!text.empty()) problems.push_back(text);
}

}  // namespace

Planner::Planner(const shot::Composition& composition, PlanOptions options)
    : composition_(composition),
      options_(std::move(options)),
      headers_(options_.headers ? options_.headers : std::make_shared<plates::Headers>()),
      project_(frame::make_project(composition, options_.scale, *headers_, options_.by_content)),
      targets_(composition, project_, options_.outputs),
      keys_(composition, project_),
      digests_(composition, project_),
      upstream_(upstream_of_outputs(composition)) {}

bool Planner::too_large(const Box& window) const {
  const int64_t side = std::max(box_width(window), box_height(window));
  if (side <= every_device_takes) return false;
  return side > (options_.largest_side ? options_.largest_side() : every_device_takes);
}

// Why a source cannot be read, "" when it can.
std::string Planner::read_error(const plates::Source& source) {
  try {
    const Box window = headers_->layer(source).extent.window;
    return too_large(window) ? source.path + ": " + too_large_text(window) : "";
  } catch (const std::runtime_error& error) {
    return error.what();
  }
}

PlannedFile Planner::planned_read(const frame::Instance& instance, const plates::Source& source) {
  PlannedFile file;
  file.node = composition_.nodes[static_cast<size_t>(instance.node)].name;
  file.frame = instance.frame;
  file.path = source.path;
  const std::string error = read_error(source);
  if (!error.empty()) file.error = frame::frame_place(composition_, instance.node, instance.frame) + error;
  inputs_.try_emplace(files::followed(source.path), file.node);
  return file;
}

void Planner::plan_results(const frame::KeyedFrame& keyed, FramePlan& plan) {
  const std::vector<frame::Instance>& instances = keyed.graph.instances;
  for (size_t i = 0; i < instances.size(); ++i) {
    const node::Node& node = composition_.nodes[static_cast<size_t>(instances[i].node)];
    const std::string result = node.name + " @ " + std::to_string(instances[i].frame);
    if (!made_.insert(keyed.keys[i]).second) {
      plan.reuses.push_back(result);
      plan.fails = plan.fails || unreadable_.count(keyed.keys[i]) > 0;
      continue;
    }
    plan.computes.push_back(result);
    const auto source = node.type->operation->source(node.call_at(instances[i].frame, project_));
    if (!source) continue;
    plan.reads.push_back(planned_read(instances[i], *source));
    if (plan.reads.back().error.empty()) continue;
    plan.fails = true;
    unreadable_.insert(keyed.keys[i]);
  }
}

// Of the graph's outputs. Throws FrameError, for an image that no texture holds as well.
std::vector<Extent> Planner::output_extents(const frame::FrameGraph& graph) const {
  const std::vector<Extent> all = frame::instance_extents(composition_, graph, project_);
  for (size_t i = 0; i < all.size(); ++i) {
    const frame::Instance& instance = graph.instances[i];
    // A pending transform may reach far beyond what will be drawn of it.
    if (composition_.nodes[static_cast<size_t>(instance.node)].type->takes_pending) continue;
    if (!too_large(all[i].window)) continue;
    throw frame::FrameError(frame::frame_place(composition_, instance.node, instance.frame) +
                            too_large_text(all[i].window));
  }
  std::vector<Extent> extents;
  for (const int output : graph.outputs) extents.push_back(all[static_cast<size_t>(output)]);
  return extents;
}

FramePlan Planner::frame(int64_t frame) {
  FramePlan plan;
  plan.frame = frame;
  std::vector<Extent> extents;  // of the outputs; windows need every header of the frame
  try {
    const frame::KeyedFrame keyed = keys_.frame(composition_.outputs, frame);
    plan_results(keyed, plan);
    plan.notices = frame::frame_notices(composition_, keyed.graph, project_);
    if (!plan.fails) extents = output_extents(keyed.graph);
  } catch (const frame::FrameError& error) {
    plan.error = error.what();
    plan.fails = true;
  }
  plan_writes(plan, extents);
  return plan;
}

// Whether the files of a frame are there and are to stay.
bool Planner::stays(const FramePlan& plan, const std::vector<Target>& targets) {
  const bool asked = options_.existing == Existing::skip || options_.existing == Existing::current;
  const auto exists = [](const PlannedFile& file) { return file.exists; };
  if (!asked || targets.empty() || !std::all_of(plan.writes.begin(), plan.writes.end(), exists)) return false;
  if (options_.existing == Existing::skip) return true;
  if (!plan.error.empty()) return false;
  return std::all_of(targets.begin(), targets.end(),
                     [&](const Target& target) { return digests_.current(target, plan.frame); });
}

void Planner::plan_writes(FramePlan& plan, const std::vector<Extent>& extents) {
  std::vector<Target> targets;
  try {
    targets = targets_.at(plan.frame);
  } catch (const TargetError& error) {
    plan.error = error.what();
    plan.fails = true;
    return;
  }
  for (const Target& target : targets) {
    const std::string& name = composition_.nodes[static_cast<size_t>(target.node)].name;
    plan.writes.push_back({name, plan.frame, target.file.path, "", stands(target.file.path)});
  }
  plan.skipped = stays(plan, targets);
  // What is skipped needs nothing that it was made of.
  if (plan.skipped) plan.fails = false;
  for (size_t i = 0; i < targets.size(); ++i) {
    PlannedFile& file = plan.writes[i];
    std::string reason = obstacle(file.path);
    if (reason.empty() && file.exists && options_.existing == Existing::refuse)
      reason = exists_text(file.path);
    if (reason.empty() && plan.skipped && options_.existing == Existing::skip) {
      reason = stale_reason(file.path, project_.scale, i < extents.size() ? &extents[i].format : nullptr);
    }
    if (reason.empty()) continue;
    file.error = frame::frame_place(composition_, targets[i].node, plan.frame) + reason;
    plan.fails = true;
  }
}

Outlook Planner::look_ahead(const std::vector<int64_t>& frames,
                            const std::function<void(const FramePlan&)>& each) {
  Outlook outlook;
  for (const int64_t frame : frames) {
    const FramePlan plan = this->frame(frame);
    if (each) each(plan);
    if (!plan.fails) {
      if (plan.skipped) outlook.kept.insert(frame);
      continue;
    }
    ++outlook.failing;
    for (const PlannedFile& file : plan.writes) {
      add_problem(file.error, outlook.problems);
      if (plan.skipped && !file.error.empty()) outlook.stale.emplace(frame, file.error);
    }
    if (plan.skipped) continue;
    for (const PlannedFile& file : plan.reads) add_problem(file.error, outlook.problems);
    add_problem(plan.error, outlook.problems);
  }
  for (const int64_t frame : composition_.frames) note_inputs(frame);
  refuse_own_inputs(frames);
  return outlook;
}

void Planner::note_inputs(int64_t frame) {
  for (size_t at = 0; at < upstream_.size(); ++at) {
    const node::Node& node = composition_.nodes[at];
    if (!upstream_[at]) continue;
    try {
      const auto source = node.type->operation->source(node.call_at(frame, project_));
      if (source) inputs_.try_emplace(files::followed(source->path), node.name);
    } catch (const std::exception&) {
      continue;  // a frame that cannot be read has nothing to lose
    }
  }
}

void Planner::refuse_own_inputs(const std::vector<int64_t>& frames) {
  if (inputs_.empty()) return;
  for (const int64_t frame : frames) {
    for (const Target& target : targets_.at(frame)) {
      const auto input = inputs_.find(files::followed(target.file.path));
      if (input == inputs_.end()) continue;
      throw TargetError(targets_.place(target.node) + target.file.path + ": node \"" + input->second +
                        "\" reads this file");
    }
  }
}

std::optional<std::vector<Extent>> Planner::extents_if_known(int64_t frame) const {
  try {
    const frame::FrameGraph graph = frame::frame_graph(composition_, composition_.outputs, frame, project_);
    const std::vector<Extent> each = frame::instance_extents(composition_, graph, project_);
    std::vector<Extent> extents(composition_.nodes.size(), Extent{project_.format, {}});
    for (size_t i = 0; i < each.size(); ++i) {
      extents[static_cast<size_t>(graph.instances[i].node)] = each[i];
    }
    return extents;
  } catch (const frame::FrameError&) {
    return std::nullopt;
  }
}

}  // namespace host::plan
