#include "host/draw/upcoming.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace host::draw {

void add_wanted(const shot::Composition& composition, const node::Project& project,
                const frame::KeyedFrame& frame, int distance, const ResultStore& store,
                std::vector<decode::Wanted>& list) {
  const std::vector<frame::Instance>& instances = frame.graph.instances;
  std::vector<uint8_t> needed(instances.size());
  for (const int output : frame.graph.outputs) needed[static_cast<size_t>(output)] = 1;
  for (size_t at = instances.size(); at-- > 0;) {
    if (!needed[at] || store.contains(frame.keys[at])) continue;
    const node::Node& node = composition.nodes[static_cast<size_t>(instances[at].node)];
    if (node.type->reads_pixels) {
      for (const int read : instances[at].reads) {
        if (read >= 0) needed[static_cast<size_t>(read)] = 1;
      }
    }
    try {
      const auto source = node.type->operation->source(node.call_at(instances[at].frame, project));
      if (source) list.push_back({*source, distance});
    } catch (const std::exception&) {
      // The frame itself will say what is wrong.
      continue;
    }
  }
}

UpcomingFrames::UpcomingFrames(const shot::Composition& composition, const node::Project& project,
                               frame::FrameKeys& keys, std::vector<int> outputs, std::vector<int64_t> frames,
                               int ahead)
    : composition_(composition),
      project_(project),
      keys_(keys),
      outputs_(std::move(outputs)),
      frames_(std::move(frames)),
      ahead_(static_cast<size_t>(ahead)) {}

bool UpcomingFrames::next(Upcoming& frame) {
  key_ahead();
  if (queue_.empty()) return false;
  frame = std::move(queue_.front());
  queue_.pop_front();
  count_keys(frame.keyed, -1);
  return true;
}

void UpcomingFrames::key_ahead() {
  while (queue_.size() <= ahead_ && keyed_ < frames_.size()) {
    Upcoming& frame = queue_.emplace_back();
    frame.frame = frames_[keyed_++];
    try {
      frame.keyed = keys_.frame(outputs_, frame.frame);
    } catch (const frame::FrameError& error) {
      frame.error = error;
    }
    count_keys(frame.keyed, 1);
  }
}

void UpcomingFrames::count_keys(const frame::KeyedFrame& frame, int by) {
  for (const int64_t key : frame.keys) {
    int& count = *later_.insert(key).first;
    count += by;
    if (count == 0) later_.erase(key);
  }
}

std::vector<decode::Wanted> UpcomingFrames::wanted(const Upcoming& current, const ResultStore& store) const {
  std::vector<decode::Wanted> list;
  add_wanted(composition_, project_, current.keyed, 0, store, list);
  int distance = 0;
  for (const Upcoming& frame : queue_)
    add_wanted(composition_, project_, frame.keyed, ++distance, store, list);
  return list;
}

}  // namespace host::draw
