#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <utility>
#include <vector>

namespace host::live::session {

// Frames of a range, nearest to one first, of two as near the one in the direction (1 or -1). A frame outside
// the range counts as the nearest in it. At most as many as are looked after at a time.
std::vector<int64_t> nearest_first(int64_t first, int64_t last, int64_t frame, int direction);
constexpr size_t most_frames_ahead = 20000;

// What is known of the frames of a range: by which key each one's image is stored, once somebody has worked
// it out, and which have none. Externally synchronised.
class Timeline {
 public:
  Timeline() = default;
  Timeline(int64_t first, int64_t last, int64_t frame, int direction)
      : order_(nearest_first(first, last, frame, direction)), keys_(order_.size()) {}

  // The same range from another frame; what is known stays.
  void move(int64_t first, int64_t last, int64_t frame, int direction);

  const std::vector<int64_t>& order() const {
    return order_;
  }

  // The first in the order of which nothing is known.
  std::optional<int64_t> unknown() const;
  void learn(int64_t frame, std::optional<int64_t> key);  // nothing: it has no image

  // The place in the order of the first known one that is not stored.
  template <class Stored>
  std::optional<size_t> missing(const Stored& stored) const {
    for (size_t at = 0; at < order_.size() && keys_[at].known; ++at) {
      if (keys_[at].key && !stored(*keys_[at].key)) return at;
    }
    return std::nullopt;
  }

  // Keys in the order, of those that have one; and how many of them stand before a place.
  std::vector<int64_t> keys() const;
  size_t keys_before(size_t place) const;

  // The stored frames, as first and last of each run, ascending.
  template <class Stored>
  std::vector<std::pair<int64_t, int64_t>> runs(const Stored& stored) const {
    std::vector<int64_t> frames;
    for (size_t at = 0; at < order_.size(); ++at) {
      if (keys_[at].key && stored(*keys_[at].key)) frames.push_back(order_[at]);
    }
    return runs_of(std::move(frames));
  }

 private:
  struct Key {
    bool known = false;
    std::optional<int64_t> key;
  };
  static std::vector<std::pair<int64_t, int64_t>> runs_of(std::vector<int64_t> frames);

  std::vector<int64_t> order_;
  std::vector<Key> keys_;  // by place in the order
  size_t all_before_ = 0;  // places from the first on that are known
};

}  // namespace host::live::session
