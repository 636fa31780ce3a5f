#include "host/draw/result_store.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>

namespace host::draw {
namespace {

using Holds = std::vector<std::pair<int64_t, int64_t>>;

// Textures are numbered upwards from 1; decoded pixels lie below them, by where they are.
std::pair<int64_t, int64_t> hold_of(const node::Image& image) {
  const auto bytes = static_cast<int64_t>(image.bytes());
  if (image.texture) return {static_cast<int64_t>(image.texture->id), bytes};
  return {-static_cast<int64_t>(reinterpret_cast<intptr_t>(image.decoded.get())), bytes};
}

void add_hold(const node::Image& image, Holds& holds) {
  if (!image.has_pixels()) return;
  const std::pair hold = hold_of(image);
  if (std::find(holds.begin(), holds.end(), hold) == holds.end()) holds.push_back(hold);
}

}  // namespace

qv::graph::ScheduleResult ResultStore::plan(const qv::graph::Schedule& schedule,
                                            const std::vector<int64_t>& keys, bool pin) {
  if (pin) cache_.begin_touch();
  return schedule.run(keys, cache_, pin);
}

void ResultStore::end_touch(const std::vector<int64_t>& beside) {
  cache_.end_touch(beside);
}

void ResultStore::prefer(int64_t key, bool pin) {
  cache_.move(key, pin);
}

const ResultPtr& ResultStore::at(int64_t slot) const {
  return results_.at(static_cast<size_t>(slot));
}

ResultPtr ResultStore::find(int64_t key, bool pin) {
  const int64_t slot = cache_.get(key, pin);
  return slot < 0 ? nullptr : at(slot);
}

bool ResultStore::contains(int64_t key) const {
  return cache_.contains(key);
}

void ResultStore::put(int64_t key, ResultPtr result, bool pin) {
  Holds holds;
  add_hold(result->image, holds);
  add_hold(result->settled, holds);
  add_hold(result->in_format, holds);
  if (free_.empty()) {
    free_.push_back(static_cast<int64_t>(results_.size()));
    results_.emplace_back();
  }
  const int64_t slot = free_.back();
  pin = pin || (cache_.contains(key) && !cache_.in_unpinned(key));
  const int64_t before = cache_.put(key, slot, holds.data(), holds.size(), true, 0, pin);
  free_.pop_back();
  results_[static_cast<size_t>(slot)] = std::move(result);
  cache_.touch(key);
  if (before >= 0) free_slot(before);
}

void ResultStore::free_slot(int64_t slot) {
  results_[static_cast<size_t>(slot)].reset();
  free_.push_back(slot);
}

int64_t ResultStore::shrink(uint64_t most_bytes, GiveUp what) {
  constexpr int64_t all = std::numeric_limits<int64_t>::max();
  const auto most = static_cast<int64_t>(std::min<uint64_t>(most_bytes, all));
  const std::vector<qv::graph::CachePopped> gone =
      cache_.evict(std::max<int64_t>(0, most - cache_.held(true)), what == GiveUp::any ? most : all);
  for (const qv::graph::CachePopped& each : gone) free_slot(each.slot);
  return static_cast<int64_t>(gone.size());
}

uint64_t ResultStore::held() const {
  return static_cast<uint64_t>(cache_.held(true) + cache_.held(false));
}

}  // namespace host::draw
