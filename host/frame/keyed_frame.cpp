#include "host/frame/keyed_frame.h"

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

}  // namespace

void FrameKeys::rebuild(const FrameGraph& graph) {
  std::vector<std::vector<int>> edges = edges_of(graph);
  walk_.build(edges, std::vector<unsigned char>(edges.size()), std::vector<int64_t>(edges.size(), -1));
  schedule_ = build_schedule(composition_, graph, std::move(edges));
}

KeyedFrame FrameKeys::frame(const std::vector<int>& outputs, int64_t frame) {
  FrameGraph graph = frame_graph(composition_, outputs, frame, project_);
  const bool anew = !schedule_ || !graph.same_shape(last_);
  if (anew) {
    rebuild(graph);
  } else {
    for (size_t i = 0; i < graph.instances.size(); ++i) {
      walk_.always[i] = graph.instances[i].varies || last_.instances[i].varies ? 1 : 0;
    }
  }
  // A question that throws leaves the walk half done.
  const auto schedule = std::exchange(schedule_, nullptr);
  visited_ += walk_.walk({}, anew, [&](int at, bool) {
    const Instance& instance = graph.instances[static_cast<size_t>(at)];
    std::vector<int64_t> read_keys;
    for (const int read : instance.reads) {
      read_keys.push_back(read < 0 ? -1 : walk_.values[static_cast<size_t>(read)]);
    }
    return std::optional<int64_t>(instance_key(composition_, instance, read_keys, project_));
  });
  schedule_ = schedule;
  last_ = graph;
  return {std::move(graph), walk_.values, schedule_};
}

}  // namespace host::frame
