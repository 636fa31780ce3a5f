#pragma once

#include <qv/graph/schedule.h>
#include <qv/graph/walk.h>

#include "host/frame/frame_graph.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace host::frame {

// A frame that is ready to be evaluated.
struct KeyedFrame {
  FrameGraph graph;
  std::vector<int64_t> keys;  // one an instance
  // The instances and, behind them, one node that reads all outputs. Shared by frames of one shape.
  std::shared_ptr<const qv::graph::Schedule> schedule;
};

// Gives the frames of one composition their keys. A frame of the same shape as the one before is
// walked for what changed since: an instance that neither varies nor stands downstream of a change
// keeps its key unseen. Externally synchronised.
class FrameKeys {
 public:
  FrameKeys(const shot::Composition& composition, const node::Project& project)
      : composition_(composition), project_(project) {}

  // Throws FrameError.
  KeyedFrame frame(const std::vector<int>& outputs, int64_t frame);

  // Instances looked at since the start.
  int64_t visited() const {
    return visited_;
  }

 private:
  void rebuild(const FrameGraph& graph);

  const shot::Composition& composition_;
  const node::Project& project_;
  FrameGraph last_;
  qv::graph::Walk walk_;
  std::shared_ptr<const qv::graph::Schedule> schedule_;  // null when the walk must be built anew
  int64_t visited_ = 0;
};

}  // namespace host::frame
