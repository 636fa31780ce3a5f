#include "host/frame/frame_graph.h"

#include <algorithm>
#include <exception>
#include <map>
#include <utility>

namespace host::frame {
namespace {

constexpr size_t most_instances = 100000;

using node::Node;
using node::Request;

// Runs a question to a node, putting file, node and frame in front of what it throws.
template <class Question>
auto ask(const shot::Composition& composition, int node, int64_t frame, Question&& question) {
  try {
    return question();
  } catch (const FrameError&) {
    throw;
  } catch (const std::exception& error) {
    throw FrameError(composition, node, frame, error.what());
  }
}

std::vector<Request> reads_of(const shot::Composition& composition, int node, int64_t frame,
                              const node::Project& project) {
  const Node& asked = composition.nodes[static_cast<size_t>(node)];
  return ask(composition, node, frame,
             [&] { return asked.type->operation->reads(asked.call_at(frame, project)); });
}

// The frames at which each node is wanted, and what it then reads. Inputs have lower positions than
// their readers, so one pass from the top finds everything without recursion.
struct Demand {
  std::vector<std::map<int64_t, std::vector<Request>>> wanted;  // by node position, then frame
  size_t count = 0;

  Demand(const shot::Composition& composition, const std::vector<int>& outputs, int64_t frame,
         const node::Project& project)
      : wanted(composition.nodes.size()) {
    for (const int output : outputs) add(output, frame);
    for (size_t at = wanted.size(); at-- > 0;) {
      const Node& node = composition.nodes[at];
      for (auto& [when, requests] : wanted[at]) {
        requests = reads_of(composition, static_cast<int>(at), when, project);
        for (const Request& request : requests)
          add(node.inputs.at(static_cast<size_t>(request.input)), request.frame);
        if (count > most_instances) {
          throw FrameError(composition, static_cast<int>(at), frame,
                           "its time nodes need more than 100000 images for one frame");
        }
      }
    }
  }

 private:
  void add(int node, int64_t frame) {
    if (node >= 0 && wanted[static_cast<size_t>(node)].try_emplace(frame).second) ++count;
  }
};

void add_knobs(const node::Knobs& knobs, node::Identity& identity) {
  for (size_t knob = 0; knob < knobs.specs().size(); ++knob) {
    const node::KnobValue& value = knobs.values()[knob];
    identity.add(static_cast<int64_t>(value.components.size()));
    for (size_t i = 0; i < value.components.size(); ++i) identity.add(knobs.value(knob, i));
    identity.add(value.text);
  }
}

// The frames that the instances of a graph come to, found from the outputs upwards.
class Frames {
 public:
  explicit Frames(const FrameGraph& graph)
      : graph_(graph), frames_(graph.instances.size()), placed_(graph.instances.size()) {}

  int64_t of(size_t at) const {
    return frames_[at];
  }

  // False when another reader wants the instance at another frame.
  bool place(int at, int64_t frame) {
    const auto place = static_cast<size_t>(at);
    if (placed_[place] != 0) return frames_[place] == frame;
    placed_[place] = 1;
    frames_[place] = frame;
    return true;
  }

  // Places what an instance reads by what it asks for now; false when that is something else.
  bool place_all(const Instance& instance, const Node& node, const std::vector<Request>& requests) {
    if (requests.size() != instance.reads.size()) return false;
    for (size_t i = 0; i < requests.size(); ++i) {
      const int input = node.inputs.at(static_cast<size_t>(requests[i].input));
      const int read = instance.reads[i];
      if ((input < 0) != (read < 0)) return false;
      if (read < 0) continue;
      if (graph_.instances[static_cast<size_t>(read)].node != input) return false;
      if (!place(read, requests[i].frame)) return false;
    }
    return true;
  }

  // Places what an instance reads where it stands.
  bool keep(const Instance& instance) {
    return std::all_of(instance.reads.begin(), instance.reads.end(), [this](int read) {
      return read < 0 || place(read, graph_.instances[static_cast<size_t>(read)].frame);
    });
  }

  // Whether the instances of each node still stand at different frames, in their order.
  bool ascend() const {
    for (size_t at = 1; at < frames_.size(); ++at) {
      const bool same_node = graph_.instances[at].node == graph_.instances[at - 1].node;
      if (same_node && frames_[at] <= frames_[at - 1]) return false;
    }
    return true;
  }

  void apply(FrameGraph& graph) const {
    for (size_t at = 0; at < frames_.size(); ++at) graph.instances[at].frame = frames_[at];
  }

 private:
  const FrameGraph& graph_;
  std::vector<int64_t> frames_;
  std::vector<uint8_t> placed_;
};

}  // namespace

std::string frame_place(const shot::Composition& composition, int node, int64_t frame) {
  return composition.file + ": node \"" + composition.nodes[static_cast<size_t>(node)].name + "\": frame " +
         std::to_string(frame) + ": ";
}

FrameError::FrameError(const shot::Composition& composition, int node, int64_t frame,
                       const std::string& reason)
    : std::runtime_error(frame_place(composition, node, frame) + reason),
      node_(composition.nodes[static_cast<size_t>(node)].name),
      reason_(reason) {}

FrameGraph frame_graph(const shot::Composition& composition, const std::vector<int>& outputs, int64_t frame,
                       const node::Project& project) {
  const Demand demand(composition, outputs, frame, project);
  FrameGraph graph;
  graph.frame = frame;
  std::vector<std::map<int64_t, int>> places(composition.nodes.size());
  for (size_t at = 0; at < composition.nodes.size(); ++at) {
    const Node& node = composition.nodes[at];
    for (const auto& [when, requests] : demand.wanted[at]) {
      Instance instance;
      instance.node = static_cast<int>(at);
      instance.frame = when;
      for (const Request& request : requests) {
        const int input = node.inputs[static_cast<size_t>(request.input)];
        instance.reads.push_back(input < 0 ? -1 : places[static_cast<size_t>(input)].at(request.frame));
      }
      places[at][when] = static_cast<int>(graph.instances.size());
      graph.instances.push_back(std::move(instance));
    }
  }
  for (const int output : outputs) graph.outputs.push_back(places[static_cast<size_t>(output)].at(frame));
  return graph;
}

bool move_graph(FrameGraph& graph, const shot::Composition& composition, int64_t frame,
                const node::Project& project, const std::vector<uint8_t>& edited,
                std::vector<uint8_t>& asked) {
  Frames frames(graph);
  for (const int output : graph.outputs) frames.place(output, frame);
  asked.assign(graph.instances.size(), 0);
  for (size_t at = graph.instances.size(); at-- > 0;) {
    const Instance& instance = graph.instances[at];
    const int64_t when = frames.of(at);
    if (when != instance.frame || edited[static_cast<size_t>(instance.node)] != 0) {
      asked[at] = 1;
      const Node& node = composition.nodes[static_cast<size_t>(instance.node)];
      if (!frames.place_all(instance, node, reads_of(composition, instance.node, when, project)))
        return false;
    } else if (!frames.keep(instance)) {
      return false;
    }
  }
  if (!frames.ascend()) return false;
  frames.apply(graph);
  graph.frame = frame;
  return true;
}

int64_t added_part(const shot::Composition& composition, const Instance& instance,
                   const node::Project& project) {
  const Node& node = composition.nodes[static_cast<size_t>(instance.node)];
  node::Identity identity;
  ask(composition, instance.node, instance.frame, [&] {
    node.type->operation->identify(node.call_at(instance.frame, project), identity);
    return true;
  });
  return identity.empty() ? 0 : identity.key();
}

int64_t own_part(const shot::Composition& composition, const Instance& instance, int64_t added,
                 const node::Project& project) {
  const Node& node = composition.nodes[static_cast<size_t>(instance.node)];
  node::Identity identity;
  identity.add(std::string_view(node.type->name));
  identity.add(project.format.width);
  identity.add(project.format.height);
  identity.add(project.format.pixel_aspect);
  identity.add(project.scale);
  add_knobs(node.call_at(instance.frame, project).knobs, identity);
  identity.add(added);
  return identity.key();
}

Extent instance_extent(const shot::Composition& composition, const Instance& instance,
                       const std::vector<Extent>& inputs, const node::Project& project) {
  const Node& node = composition.nodes[static_cast<size_t>(instance.node)];
  return ask(composition, instance.node, instance.frame,
             [&] { return node.type->operation->extent(node.call_at(instance.frame, project), inputs); });
}

std::vector<Extent> instance_extents(const shot::Composition& composition, const FrameGraph& graph,
                                     const node::Project& project) {
  std::vector<Extent> extents;
  extents.reserve(graph.instances.size());
  for (const Instance& instance : graph.instances) {
    std::vector<Extent> inputs;
    for (const int read : instance.reads) {
      inputs.push_back(read < 0 ? Extent{project.format, {}} : extents[static_cast<size_t>(read)]);
    }
    extents.push_back(instance_extent(composition, instance, inputs, project));
  }
  return extents;
}

}  // namespace host::frame
