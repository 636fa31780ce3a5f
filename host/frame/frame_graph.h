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
};

// All (node, frame) pairs that one frame needs, each once, upstream first; those of one node by frame.
struct FrameGraph {
  int64_t frame = 0;
  std::vector<Instance> instances;
  std::vector<int> outputs;  // instances, one an output asked for, in the order given
};

// The graph for these outputs (positions in the composition) at a frame. Throws FrameError, also
// when time nodes would need more than 100,000 instances.
FrameGraph frame_graph(const shot::Composition& composition, const std::vector<int>& outputs, int64_t frame,
                       const node::Project& project);

// Takes a graph to another frame while its shape stands, as it mostly does from frame to frame. Asks
// what they read those instances alone that come to another frame or whose node is marked in `edited`
// (one byte a node), and marks them in `asked` (one byte an instance). False when the shape changes:
// the graph is then as it was and must be built anew. Throws FrameError, with the graph as it was.
bool move_graph(FrameGraph& graph, const shot::Composition& composition, int64_t frame,
                const node::Project& project, const std::vector<uint8_t>& edited,
                std::vector<uint8_t>& asked);

// What an operation adds to its own part of the key, and that part: type, knobs and what was added.
// Both are non-negative; `added` is 0 where it adds nothing. Throw FrameError.
int64_t added_part(const shot::Composition& composition, const Instance& instance,
                   const node::Project& project);
int64_t own_part(const shot::Composition& composition, const Instance& instance, int64_t added,
                 const node::Project& project);

// Format and data window of an instance, given those of what it reads; of all, in their order. Throw
// FrameError.
Extent instance_extent(const shot::Composition& composition, const Instance& instance,
                       const std::vector<Extent>& inputs, const node::Project& project);
std::vector<Extent> instance_extents(const shot::Composition& composition, const FrameGraph& graph,
                                     const node::Project& project);

}  // namespace host::frame
