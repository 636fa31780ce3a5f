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

// Gives the frames of one composition their keys. The graph of the frame before is kept while its
// shape stands: only instances that come to another frame, or whose node was edited, are asked anew,
// each once, and only what lies downstream of an answer that differs is looked at.
// Externally synchronised.
class FrameKeys {
 public:
  // Both outlive it. Between two frames knobs and connections of the nodes may change, not their number.
  FrameKeys(const shot::Composition& composition, const node::Project& project)
      : composition_(composition), project_(project), edited_(composition.nodes.size()) {}

  // Goes on from the frames of another composition, an earlier version mostly, which is still there: while
  // the nodes are as many and of the same types, those that differ count as edited. `before` starts anew.
  FrameKeys(const shot::Composition& composition, const node::Project& project, FrameKeys&& before);

  // Throws FrameError.
  KeyedFrame frame(const std::vector<int>& outputs, int64_t frame);

  // A node's knobs or connections have changed.
  void edited(int node) {
    edited_.at(static_cast<size_t>(node)) = 1;
  }

  // Files may have changed: the next frame asks every instance anew, also those that stay at their frame.
  void look_again() {
    schedule_ = nullptr;
  }

  // Instances whose keys were worked out since the start.
  int64_t visited() const {
    return visited_;
  }

 private:
  // What an instance said of itself when it was last asked.
  struct Answer {
    int64_t added = 0;
    int64_t own = -1;
  };

  void rebuild(const std::vector<int>& outputs, int64_t frame);
  bool ask(size_t at, bool anew);

  const shot::Composition& composition_;
  const node::Project& project_;
  std::vector<uint8_t> edited_;  // by node
  std::vector<int> outputs_;
  FrameGraph graph_;
  std::vector<Answer> answers_;  // by instance
  qv::graph::Walk walk_;
  std::shared_ptr<const qv::graph::Schedule> schedule_;  // null when all must be built anew
  int64_t visited_ = 0;
};

}  // namespace host::frame
