#include "host/live/session/ahead.h"

#include <algorithm>
#include <map>

namespace host::live::session {

std::vector<int64_t> nearest_first(int64_t first, int64_t last, int64_t frame, int direction) {
  std::vector<int64_t> order;
  if (last < first) return order;
  frame = std::clamp(frame, first, last);
  // How far it goes to either side, without a sum that leaves 64 bits.
  const uint64_t below = static_cast<uint64_t>(frame) - static_cast<uint64_t>(first);
  const uint64_t above = static_cast<uint64_t>(last) - static_cast<uint64_t>(frame);
  order.push_back(frame);
  for (uint64_t step = 1; step <= std::max(below, above) && order.size() < most_frames_ahead; ++step) {
    const auto by = static_cast<int64_t>(step);
    const bool up_first = direction >= 0;
    if (up_first && step <= above) order.push_back(frame + by);
    if (step <= below) order.push_back(frame - by);
    if (!up_first && step <= above) order.push_back(frame + by);
  }
  return order;
}

void Timeline::move(int64_t first, int64_t last, int64_t frame, int direction) {
  std::map<int64_t, Key> known;
  for (size_t at = 0; at < order_.size(); ++at) {
    if (keys_[at].known) known.emplace(order_[at], keys_[at]);
  }
  order_ = nearest_first(first, last, frame, direction);
  keys_.assign(order_.size(), {});
  all_before_ = 0;
  for (size_t at = 0; at < order_.size(); ++at) {
    const auto place = known.find(order_[at]);
    if (place != known.end()) keys_[at] = place->second;
  }
}

std::optional<int64_t> Timeline::unknown() const {
  for (size_t at = all_before_; at < order_.size(); ++at) {
    if (!keys_[at].known) return order_[at];
  }
  return std::nullopt;
}

void Timeline::learn(int64_t frame, std::optional<int64_t> key) {
  // Mostly the first of which nothing was known.
  size_t at = all_before_;
  if (at >= order_.size() || order_[at] != frame)
    at = static_cast<size_t>(std::find(order_.begin(), order_.end(), frame) - order_.begin());
  if (at == order_.size()) return;
  keys_[at] = {true, key};
  while (all_before_ < order_.size() && keys_[all_before_].known) ++all_before_;
}

std::vector<int64_t> Timeline::keys() const {
  std::vector<int64_t> keys;
  for (const Key& each : keys_) {
    if (each.key) keys.push_back(*each.key);
  }
  return keys;
}

size_t Timeline::keys_before(size_t place) const {
  return static_cast<size_t>(std::count_if(keys_.begin(), keys_.begin() + static_cast<std::ptrdiff_t>(place),
                                           [](const Key& each) { return each.key.has_value(); }));
}

std::vector<std::pair<int64_t, int64_t>> Timeline::runs_of(std::vector<int64_t> frames) {
  std::sort(frames.begin(), frames.end());
  std::vector<std::pair<int64_t, int64_t>> runs;
  for (const int64_t frame : frames) {
    if (!runs.empty() && runs.back().second + 1 == frame) {
      runs.back().second = frame;
    } else {
      runs.emplace_back(frame, frame);
    }
  }
  return runs;
}

}  // namespace host::live::session
