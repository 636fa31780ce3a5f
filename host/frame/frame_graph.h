#pragma once

#include "host/frame/frame_error.h"
#include "host/node/node.h"
#include "host/shot/composition.h"

#include <cstdint>
#include <string>
#include <vector>

namespace host::frame {

// One node at one frame, as part of what a frame of output needs.
struct Instance {
  int node = 0;  // position in the composition
  int64_t frame = 0;
  std::vector<int> reads;  // instances, in the order of Operation::reads; -1: not connected
  bool varies = false;     // its own part of the key may differ at another frame
};

// All (node, frame) pairs that one frame needs, each once, upstream first. Two frames of one
// composition mostly have the same shape, which is what makes walk and schedule reusable.
struct FrameGraph {
  int64_t frame = 0;
  std::vector<Instance> instances;
  std::vector<int> outputs;  // instances, one an output asked for, in the order given

  // True when the same nodes read each other in the same way, at whatever frames.
  bool same_shape(const FrameGraph& other) const;
};

// The graph for these outputs (positions in the composition) at a frame. Throws FrameError, also
// when time nodes would need more than 100,000 instances.
FrameGraph frame_graph(const shot::Composition& composition, const std::vector<int>& outputs, int64_t frame,
                       const node::Project& project);

// The cache key of an instance, from what its node says and the keys of what it reads (-1: not
// connected). Never negative. Throws FrameError.
int64_t instance_key(const shot::Composition& composition, const Instance& instance,
                     const std::vector<int64_t>& read_keys, const node::Project& project);

// Format and data window of every instance, in their order. Throws FrameError.
std::vector<Extent> instance_extents(const shot::Composition& composition, const FrameGraph& graph,
                                     const node::Project& project);

}  // namespace host::frame
