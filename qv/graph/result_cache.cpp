#include <qv/graph/result_cache.h>

#include <algorithm>
#include <limits>
#include <stdexcept>

namespace qv::graph {

static_assert(sizeof(ResultCache::Entry) == 64, "an entry is one cache line");

namespace {

// Makes the next n elements unable to fail.
template <class T>
void make_room(std::vector<T>& values, size_t n) {
  if (values.capacity() - values.size() < n) values.reserve(values.size() + std::max(values.size(), n));
}

}  // namespace

// Counts a buffer in (delta 1) or out (delta -1) of one order and says whether any entry holds it.
bool ResultCache::count(Ref& ref, int list, int delta) {
  const auto total_of = [](const Ref& each) { return each.users[1] ? 2 : each.users[0] ? 1 : 0; };
  const int before = total_of(ref);
  ref.users[list] += delta;
  const int after = total_of(ref);
  if (before) held_bytes_[before - 1] -= ref.size;
  if (after) held_bytes_[after - 1] += ref.size;
  return after != 0;
}

// Counts the buffers in or out of one order. Taking out never fails. Taking in allocates nothing where refs_
// has room for those that are not there, which put reserves and buffers just taken out leave; a full table is
// only looked into, because an insert would grow it for a buffer that is there.
void ResultCache::hold(const Holds& holds, int list, int delta) {
  if (delta < 0) {
    for (const auto& [buffer, size] : holds)
      if (Ref* const ref = refs_.find(buffer); ref && !count(*ref, list, -1)) refs_.erase(buffer);
    return;
  }
  for (const auto& [buffer, size] : holds) {
    const auto [ref, added] = refs_.has_room(1) ? refs_.insert(buffer) : std::pair{refs_.find(buffer), false};
    if (added) ref->size = size;
    count(*ref, list, 1);
  }
}

void ResultCache::link_back(int entry, int list) {
  Entry& e = at(entry);
  e.list = list;
  e.next = -1;
  e.prev = tail_[list];
  (e.prev < 0 ? head_[list] : at(e.prev).next) = entry;
  tail_[list] = entry;
  ++count_[list];
}

void ResultCache::unlink_order(int entry) {
  Entry& e = at(entry);
  (e.prev < 0 ? head_[e.list] : at(e.prev).next) = e.next;
  (e.next < 0 ? tail_[e.list] : at(e.next).prev) = e.prev;
  e.prev = e.next = -1;
  --count_[e.list];
}

// Does what get left to do: makes the entries it found the most recent of their orders, one after the
// other. Their neighbours lie anywhere in memory; asked for all at once, they arrive together.
void ResultCache::settle_order() {
  const int n = std::exchange(found_count_, 0);
  for (int i = 0; i < n; ++i) {
    const Entry& e = at(found_[i]);
    if (e.prev >= 0) __builtin_prefetch(&at(e.prev), 1);
    if (e.next >= 0) __builtin_prefetch(&at(e.next), 1);
  }
  for (int i = 0; i < n; ++i) {
    const int list = at(found_[i]).list;
    if (tail_[list] == found_[i]) continue;
    unlink_order(found_[i]);
    link_back(found_[i], list);
  }
}

// Asks for everything that removing an entry will look up.
void ResultCache::prefetch_removal(const Entry& e) const {
  index_.prefetch(e.key);
  for (const auto& [buffer, size] : e.holds) refs_.prefetch(buffer);
}

bool ResultCache::is_touched(const Entry& e) const {
  return e.touched_in == cycle_;
}

void ResultCache::remove(int entry) {
  Entry& e = at(entry);
  hold(e.holds, e.list, -1);
  release(entry);
}

// The rest of removing an entry whose buffers are counted out. The open cycle has to remember its key.
void ResultCache::release(int entry) {
  Entry& e = at(entry);
  unlink_order(entry);
  if (is_touched(e)) touched_.insert(e.key);
  index_.erase(e.key);
  e.slot = -1;
  e.holds.clear();
  free_.push_back(entry);  // spare_entry keeps room for every entry
}

// Released and held again rather than moved over: a sole holder registers its buffers anew.
void ResultCache::transfer(int entry, int list) {
  Entry& e = at(entry);
  unlink_order(entry);
  hold(e.holds, e.list, -1);
  link_back(entry, list);
  hold(e.holds, list, 1);
}

// The released entry that put takes next, made where there is none. It stays on free_.
int ResultCache::spare_entry() {
  if (free_.empty()) {
    if (entries_.size() >= std::numeric_limits<int32_t>::max()) throw std::length_error("vector too long");
    if (free_.capacity() <= entries_.size()) free_.reserve(2 * entries_.size() + 16);
    entries_.emplace_back();
    free_.push_back(static_cast<int32_t>(entries_.size() - 1));
  }
  return free_.back();
}

int64_t ResultCache::put(int64_t key, int64_t slot, const std::pair<int64_t, int64_t>* holds, size_t n_holds,
                         bool flag, double cost, bool pinned) {
  if (n_holds > Holds().max_size()) throw std::length_error("vector too long");
  for (size_t i = 0; i < n_holds; ++i) refs_.prefetch(holds[i].first);
  // A cache that is full gives up its least recent entry for this one.
  if (head_[0] >= 0) __builtin_prefetch(at(head_[0]).holds.data());

  // Everything that may fail comes first and changes nothing that a caller can see.
  const int* const cached = index_.find(key);
  const int entry = cached ? *cached : spare_entry();
  Entry& e = at(entry);
  e.holds.reserve(n_holds);
  refs_.reserve(n_holds);
  if (!cached) index_.reserve(1);

  settle_order();
  const int64_t previous = cached ? e.slot : -1;
  if (cached) {
    unlink_order(entry);
    hold(e.holds, e.list, -1);
  } else {
    free_.pop_back();
    e.touched_in = 0;
    *index_.insert(key).first = entry;
  }
  if (pinned) note_touch(e);
  e.key = key;
  e.slot = slot;
  e.cost = cost;
  e.flag = flag;
  e.holds.assign(holds, holds + n_holds);
  link_back(entry, pinned ? 1 : 0);
  hold(e.holds, e.list, 1);
  if (head_[0] >= 0) prefetch_removal(at(head_[0]));
  return previous;
}

int64_t ResultCache::get(int64_t key, bool pin) {
  const int* const entry = index_.find(key);
  if (!entry) {
    if (pin && touching) touched_.insert(key);
    return -1;
  }
  if (pin) note_touch(at(*entry));
  const int64_t slot = at(*entry).slot;
  if (pin && at(*entry).list == 0) {
    settle_order();
    transfer(*entry, 1);
  } else {
    if (found_count_ == found_room) settle_order();
    found_[found_count_++] = *entry;
  }
  return slot;
}

void ResultCache::move(int64_t key, bool pinned) {
  settle_order();
  if (const int* const entry = index_.find(key)) transfer(*entry, pinned ? 1 : 0);
}

// Notes a cached key in its entry, where there is room for it.
void ResultCache::note_touch(Entry& e) const {
  if (touching) e.touched_in = cycle_;
}

void ResultCache::touch(int64_t key) {
  if (const int* const entry = index_.find(key))
    note_touch(at(*entry));
  else if (touching)
    touched_.insert(key);
}

void ResultCache::end_touch(const std::vector<int64_t>& keys) {
  settle_order();
  for (const int64_t key : keys) {
    const int* const entry = index_.find(key);
    if (!entry) continue;
    if (at(*entry).list == 0) transfer(*entry, 1);
    at(*entry).touched_in = cycle_;
  }
  // An entry that moves leaves the pinned order, and those behind it are looked at all the same.
  for (int entry = head_[1]; entry >= 0;) {
    const int next = at(entry).next;
    if (!is_touched(at(entry)) && !touched_.contains(at(entry).key)) transfer(entry, 0);
    entry = next;
  }
  touching = false;
  forget_touched();
}

void ResultCache::forget_touched() {
  if (touched_.size() > 0) touched_.clear();
  if (++cycle_ != 0) return;
  // The numbers begin again, so that no entry may bear an old one.
  for (Entry& e : entries_) e.touched_in = 0;
  cycle_ = 1;
}

CachePopped ResultCache::popped(int entry) const {
  const Entry& e = at(entry);
  return {e.key, e.slot, e.flag, e.cost, e.list == 1};
}

// Counts the entry's buffers out and lists those that nobody holds any more. These keep their place and their
// size, so that count_in undoes it.
void ResultCache::count_out(const Entry& e) {
  make_room(unheld_, e.holds.size());
  for (const auto& [buffer, size] : e.holds)
    if (Ref* const ref = refs_.find(buffer); ref && !count(*ref, e.list, -1)) unheld_.push_back(buffer);
}

void ResultCache::count_in(const Entry& e) {
  for (const auto& [buffer, size] : e.holds)
    if (Ref* const ref = refs_.find(buffer)) count(*ref, e.list, 1);
}

std::vector<CachePopped> ResultCache::evict(int64_t max_unpinned_bytes, int64_t max_pinned_bytes) {
  const int64_t budgets[2] = {max_unpinned_bytes, max_pinned_bytes};
  std::vector<CachePopped> result;
  if (held_bytes_[0] <= max_unpinned_bytes && held_bytes_[1] <= max_pinned_bytes) return result;
  settle_order();
  // Count out as many entries as need to go, and list them. put asked for what the first needs.
  unheld_.clear();
  size_t unpinned = 0;
  try {
    uint64_t touched = 0;
    for (const int list : {0, 1}) {
      for (int entry = head_[list]; held_bytes_[list] > budgets[list] && entry >= 0; entry = at(entry).next) {
        const Entry& e = at(entry);
        if (e.next >= 0 && !result.empty()) prefetch_removal(at(e.next));
        make_room(result, 1);
        count_out(e);
        result.push_back(popped(entry));
        touched += is_touched(e) ? 1 : 0;
      }
      if (list == 0) unpinned = result.size();
    }
    if (touched > 0) touched_.reserve(touched);
  } catch (...) {
    for (const CachePopped& each : result) count_in(at(*index_.find(each.key)));
    throw;
  }
  // Remove them, which cannot fail.
  for (const int64_t buffer : unheld_) refs_.erase(buffer);
  for (size_t i = 0; i < result.size(); ++i) release(head_[i < unpinned ? 0 : 1]);
  return result;
}

bool ResultCache::pop1(int64_t key, CachePopped& out) {
  const int* const entry = index_.find(key);
  if (!entry) return false;
  if (is_touched(at(*entry))) touched_.reserve(1);
  settle_order();
  out = popped(*entry);
  remove(*entry);
  return true;
}

bool ResultCache::in_unpinned(int64_t key) const {
  const int* const entry = index_.find(key);
  return entry && at(*entry).list == 0;
}

std::vector<int64_t> ResultCache::keys(bool pinned) const {
  // A const object has nothing left to settle, because get is not const.
  const_cast<ResultCache*>(this)->settle_order();
  std::vector<int64_t> result;
  result.reserve(static_cast<size_t>(count_[pinned]));
  for (int entry = head_[pinned]; entry >= 0; entry = at(entry).next) result.push_back(at(entry).key);
  return result;
}

std::vector<int64_t> ResultCache::slots() {
  settle_order();
  std::vector<int64_t> result;
  result.reserve(static_cast<size_t>(count_[0] + count_[1]));
  for (const int list : {0, 1})
    for (int entry = head_[list]; entry >= 0; entry = at(entry).next) result.push_back(at(entry).slot);
  return result;
}

void ResultCache::clear() {
  entries_.clear();
  free_.clear();
  index_.clear();
  refs_.clear();
  forget_touched();
  for (const int list : {0, 1}) {
    head_[list] = tail_[list] = -1;
    count_[list] = held_bytes_[list] = 0;
  }
  touching = false;
  found_count_ = 0;
}

}  // namespace qv::graph
