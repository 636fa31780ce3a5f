#pragma once

#include <qv/graph/flat_map.h>

#include "host/decode/sources.h"
#include "host/draw/result_store.h"
#include "host/frame/frame_error.h"
#include "host/frame/keyed_frame.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace host::draw {

// A frame about to be rendered: its keyed graph, or why it has none.
struct Upcoming {
  int64_t frame = 0;
  frame::KeyedFrame keyed;
  std::optional<frame::FrameError> error;  // of a graph that could not be made; the frame fails with it
};

// Adds the files that a frame will read, given what is stored already.
void add_wanted(const shot::Composition& composition, const node::Project& project,
                const frame::KeyedFrame& frame, int distance, const ResultStore& store,
                std::vector<decode::Wanted>& list);

// The frames to render, the next few of them keyed ahead: so that their files can be decoded in time
// and it is known which results they will ask for. Externally synchronised.
class UpcomingFrames {
 public:
  // frames, outputs: what to render; ahead: frames to look beyond the next one. References outlive it.
  UpcomingFrames(const shot::Composition& composition, const node::Project& project, frame::FrameKeys& keys,
                 std::vector<int> outputs, std::vector<int64_t> frames, int ahead);

  // Moves on to the next frame; false when there is none.
  bool next(Upcoming& frame);

  // Whether one of the frames ahead has a result of this key in its graph.
  bool asks_for(int64_t key) const {
    return later_.contains(key);
  }

  // The files that the current frame and those ahead will read, given what is stored already.
  std::vector<decode::Wanted> wanted(const Upcoming& current, const ResultStore& store) const;

 private:
  void key_ahead();
  void count_keys(const frame::KeyedFrame& frame, int by);

  const shot::Composition& composition_;
  const node::Project& project_;
  frame::FrameKeys& keys_;
  std::vector<int> outputs_;
  std::vector<int64_t> frames_;
  size_t ahead_;
  size_t keyed_ = 0;               // frames that have been keyed, from the first on
  std::deque<Upcoming> queue_;     // keyed, not yet handed out
  qv::graph::FlatMap<int> later_;  // how many frames of the queue have an instance of this key
};

}  // namespace host::draw
