#include "host/frame/frame_graph.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

namespace host::frame {
namespace {

constexpr size_t most_instances = 100000;

using node::Call;
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
    throw FrameError(frame_place(composition, node, frame) + error.what());
  }
}

bool animated(const Node& node) {
  return std::any_of(node.knobs.begin(), node.knobs.end(),
                     [](const node::KnobValue& value) { return value.animated(); });
}

// Whether the operation adds anything of its own to the key.
bool adds_identity(const Call& call) {
  node::Identity identity;
  call.node.type->operation->identify(call, identity);
  return identity.key() != node::Identity().key();
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
        const Call call = node.call_at(when, project);
        requests =
            ask(composition, static_cast<int>(at), when, [&] { return node.type->operation->reads(call); });
        for (const Request& request : requests)
          add(node.inputs.at(static_cast<size_t>(request.input)), request.frame);
        if (count > most_instances) {
          throw FrameError(frame_place(composition, static_cast<int>(at), frame) +
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

}  // namespace

std::string frame_place(const shot::Composition& composition, int node, int64_t frame) {
  return composition.file + ": node \"" + composition.nodes[static_cast<size_t>(node)].name + "\": frame " +
         std::to_string(frame) + ": ";
}

bool FrameGraph::same_shape(const FrameGraph& other) const {
  return outputs == other.outputs &&
         std::equal(
             instances.begin(), instances.end(), other.instances.begin(), other.instances.end(),
             [](const Instance& a, const Instance& b) { return a.node == b.node && a.reads == b.reads; });
}

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
      instance.varies = animated(node) || ask(composition, instance.node, when, [&, frame_wanted = when] {
                          return adds_identity(node.call_at(frame_wanted, project));
                        });
      places[at][when] = static_cast<int>(graph.instances.size());
      graph.instances.push_back(std::move(instance));
    }
  }
  for (const int output : outputs) graph.outputs.push_back(places[static_cast<size_t>(output)].at(frame));
  return graph;
}

int64_t instance_key(const shot::Composition& composition, const Instance& instance,
                     const std::vector<int64_t>& read_keys, const node::Project& project) {
  const Node& node = composition.nodes[static_cast<size_t>(instance.node)];
  const Call call = node.call_at(instance.frame, project);
  node::Identity identity;
  identity.add(std::string_view(node.type->name));
  identity.add(project.format.width);
  identity.add(project.format.height);
  identity.add(project.format.pixel_aspect);
  identity.add(project.scale);
  add_knobs(call.knobs, identity);
  for (const int64_t key : read_keys) identity.add(key);
  ask(composition, instance.node, instance.frame, [&] {
    node.type->operation->identify(call, identity);
    return true;
  });
  return identity.key();
}

std::vector<Extent> instance_extents(const shot::Composition& composition, const FrameGraph& graph,
                                     const node::Project& project) {
  std::vector<Extent> extents;
  extents.reserve(graph.instances.size());
  for (const Instance& instance : graph.instances) {
    const Node& node = composition.nodes[static_cast<size_t>(instance.node)];
    std::vector<Extent> inputs;
    for (const int read : instance.reads) {
      inputs.push_back(read < 0 ? Extent{project.format, {}} : extents[static_cast<size_t>(read)]);
    }
    extents.push_back(ask(composition, instance.node, instance.frame, [&] {
      return node.type->operation->extent(node.call_at(instance.frame, project), inputs);
    }));
  }
  return extents;
}

}  // namespace host::frame
