#include "host/frame/keyed_frame.h"

#include <algorithm>
#include <string>
#include <utility>

namespace host::frame {
namespace {

// The instances that each instance reads, without inputs that are not connected.
std::vector<std::vector<int>> edges_of(const FrameGraph& graph) {
  std::vector<std::vector<int>> edges;
  for (const Instance& instance : graph.instances) {
    std::vector<int>& reads = edges.emplace_back();
    for (const int read : instance.reads) {
      if (read >= 0) reads.push_back(read);
    }
  }
  return edges;
}

std::shared_ptr<const qv::graph::Schedule> build_schedule(const shot::Composition& composition,
                                                          const FrameGraph& graph,
                                                          std::vector<std::vector<int>> edges) {
  std::vector<unsigned char> flags;
  for (const Instance& instance : graph.instances) {
    const node::NodeType& type = *composition.nodes[static_cast<size_t>(instance.node)].type;
    flags.push_back(type.reads_pixels ? 0 : qv::graph::skip_inputs);
  }
  edges.push_back(graph.outputs);
  flags.push_back(qv::graph::always_compute);
  auto schedule = std::make_shared<qv::graph::Schedule>();
  schedule->build(edges, std::move(flags));
  return schedule;
}

bool same_curve(const node::KnobComponent& a, const node::KnobComponent& b) {
  return (a.curve == nullptr) == (b.curve == nullptr) && a.curve_id == b.curve_id && a.constant == b.constant;
}

bool same_value(const node::KnobValue& a, const node::KnobValue& b) {
  return a.text == b.text && std::equal(a.components.begin(), a.components.end(), b.components.begin(),
                                        b.components.end(), same_curve);
}

bool same_node(const node::Node& a, const node::Node& b) {
  return a.inputs == b.inputs && a.layers == b.layers && a.view == b.view &&
         std::equal(a.knobs.begin(), a.knobs.end(), b.knobs.begin(), b.knobs.end(), same_value);
}

// A type is known by its address: compositions share the catalogue.
bool same_types(const shot::Composition& a, const shot::Composition& b) {
  return std::equal(a.nodes.begin(), a.nodes.end(), b.nodes.begin(), b.nodes.end(),
                    [](const node::Node& one, const node::Node& other) { return one.type == other.type; });
}

}  // namespace

FrameKeys::FrameKeys(const shot::Composition& composition, const node::Project& project, FrameKeys&& before)
    : FrameKeys(composition, project) {
  const auto known = std::exchange(before.schedule_, nullptr);
  if (!known || project_ != before.project_ || !same_types(composition_, before.composition_)) return;
  for (size_t at = 0; at < edited_.size(); ++at) {
    const bool differs = !same_node(composition_.nodes[at], before.composition_.nodes[at]);
    edited_[at] = differs || before.edited_[at] != 0 ? 1 : 0;
  }
  outputs_ = std::move(before.outputs_);
  graph_ = std::move(before.graph_);
  answers_ = std::move(before.answers_);
  walk_ = std::move(before.walk_);
  schedule_ = known;
}

void FrameKeys::rebuild(const std::vector<int>& outputs, int64_t frame) {
  graph_ = frame_graph(composition_, outputs, frame, project_);
  outputs_ = outputs;
  answers_.assign(graph_.instances.size(), {});
  std::vector<std::vector<int>> edges = edges_of(graph_);
  walk_.build(edges, std::vector<unsigned char>(edges.size()), std::vector<int64_t>(edges.size(), -1));
  schedule_ = build_schedule(composition_, graph_, std::move(edges));
}

// Whether the instance says something else of itself than when it was last asked.
bool FrameKeys::ask(size_t at, bool anew) {
  const Instance& instance = graph_.instances[at];
  Answer& last = answers_[at];
  const int64_t added = added_part(composition_, instance, project_);
  const auto node = static_cast<size_t>(instance.node);
  const bool same_knobs = !anew && edited_[node] == 0 && !composition_.nodes[node].animated();
  if (same_knobs && added == last.added) return false;
  const Answer now{added, own_part(composition_, instance, added, project_)};
  const bool differs = now.own != last.own;
  last = now;
  return differs;
}

KeyedFrame FrameKeys::frame(const std::vector<int>& outputs, int64_t frame) {
  // A question that throws leaves all of this half done: the next frame then starts from nothing.
  const auto known = std::exchange(schedule_, nullptr);
  std::vector<uint8_t> asked;
  const bool anew =
      !known || outputs != outputs_ || !move_graph(graph_, composition_, frame, project_, edited_, asked);
  std::shared_ptr<const qv::graph::Schedule> schedule = known;
  if (anew) {
    rebuild(outputs, frame);
    schedule = std::exchange(schedule_, nullptr);
  }
  std::vector<int> seeds;
  for (size_t at = 0; at < graph_.instances.size(); ++at) {
    if ((anew || asked[at] != 0) && ask(at, anew)) seeds.push_back(static_cast<int>(at));
  }
  visited_ += walk_.walk(seeds, anew, [this](int at, bool) -> std::optional<int64_t> {
    node::Identity identity;
    identity.add(answers_[static_cast<size_t>(at)].own);
    for (const int read : graph_.instances[static_cast<size_t>(at)].reads) {
      identity.add(read < 0 ? int64_t{-1} : walk_.values[static_cast<size_t>(read)]);
    }
    return identity.key();
  });
  std::fill(edited_.begin(), edited_.end(), uint8_t{0});
  schedule_ = std::move(schedule);
  return {graph_, walk_.values, schedule_};
}

}  // namespace host::frame
