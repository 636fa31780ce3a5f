#pragma once

#include <qv/export.h>
#include <qv/graph/flat_map.h>

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace qv::graph {

// A result that the cache gave up, for the host to free.
struct CachePopped {
  int64_t key = 0;
  int64_t slot = -1;
  bool flag = true;
  double cost = 0;
  bool pinned = false;
};

// Remembers evaluated results by key and says which to give up when memory runs short.
// Owns no pixels: an entry names the host's result (its slot, 0 or more) and the buffers that the
// result keeps alive, with their sizes in bytes. Two recency orders: entries that the current
// evaluation uses are pinned, the rest are not. A buffer held by several entries is counted once:
// with the pinned ones if any of them is pinned, at the size with which it first came in.
// A touch cycle keeps pinned just what one evaluation used: begin_touch, evaluate, end_touch.
// Externally synchronised. put, get, move and pop1 are O(1) beside the buffers of the entry; evict is
// O(entries evicted); none of them recurses or scans.
// Failure: whatever allocates does so before it changes anything, so that std::bad_alloc (or
// std::length_error, "vector too long") leaves every entry and total as it was. move, end_touch, and get
// and touch of a key that is cached never allocate.
class ResultCache {
 public:
  // One cached result, or a released one (slot -1) waiting to be used again. 64 bytes, so that
  // an entry lies in one cache line.
  struct alignas(64) Entry {
    int64_t key = 0;
    int64_t slot = -1;
    double cost = 0;
    int32_t prev = -1;
    int32_t next = -1;
    int32_t list = 0;
    bool flag = true;
    uint16_t touched_in = 0;  // the touch cycle that last recorded the key, as the cache counts cycles
    std::vector<std::pair<int64_t, int64_t>> holds;
  };

  // A held buffer: its size in bytes, and how many unpinned [0] and pinned [1] entries hold it.
  struct Ref {
    int64_t size = 0;
    int32_t users[2] = {0, 0};
  };

  ResultCache() = default;
  ResultCache(const ResultCache&) = delete;
  ResultCache& operator=(const ResultCache&) = delete;
  ~ResultCache() = default;

  // Stores a result as the most recent of its order and returns the slot that the key had before, or
  // -1: the host frees that one if it differs. holds: n_holds pairs (buffer, size in bytes), copied;
  // may be null where n_holds is 0. flag and cost are handed back as they are. A slot below 0 is
  // stored, but get cannot tell it from a miss.
  QV_API int64_t put(int64_t key, int64_t slot, const std::pair<int64_t, int64_t>* holds, size_t n_holds,
                     bool flag, double cost, bool pinned);

  // The slot of a key, now the most recent of its order, or -1. With `pin` the entry moves into the
  // pinned order, and an open touch cycle records the key, cached or not.
  QV_API int64_t get(int64_t key, bool pin);

  // Makes a key the most recent of the chosen order; nothing where it is not cached.
  QV_API void move(int64_t key, bool pinned);

  // Opens a touch cycle, or goes on with the open one: the same as setting `touching`.
  void begin_touch() {
    touching = true;
  }

  // Records a key as used in the open touch cycle; nothing where none is open.
  QV_API void touch(int64_t key);

  // Closes the touch cycle: pins the keys given, then unpins every pinned entry that was neither
  // recorded nor given, the least recent first. O(pinned entries + keys).
  QV_API void end_touch(const std::vector<int64_t>& keys);

  // Gives up the least recent unpinned entries while their total is over the first budget, then
  // pinned ones while theirs is over the second; returns them in that order. An entry whose buffers
  // others hold lowers no total, so an order may empty without reaching its budget.
  QV_API std::vector<CachePopped> evict(int64_t max_unpinned_bytes, int64_t max_pinned_bytes);

  // Removes one key and fills `out`; false, and `out` as it was, where the key is not cached.
  QV_API bool pop1(int64_t key, CachePopped& out);

  // What is cached, without making anything more recent.
  bool contains(int64_t key) const {
    return index_.contains(key);
  }
  QV_API bool in_unpinned(int64_t key) const;

  // Bytes held by one order (see above), and its number of entries.
  int64_t held(bool pinned) const {
    return held_bytes_[pinned];
  }
  int64_t size(bool pinned) const {
    return count_[pinned];
  }

  // The keys of one order, and the slots of both, unpinned first; each the least recent first.
  QV_API std::vector<int64_t> keys(bool pinned) const;
  QV_API std::vector<int64_t> slots();

  // Forgets everything, the open touch cycle too, and reports nothing: free slots() before.
  QV_API void clear();

 private:
  friend struct ResultCacheCheck;  // defined by the tests, which follow every link and total

  using Holds = std::vector<std::pair<int64_t, int64_t>>;

  Entry& at(int entry) {
    return entries_[static_cast<size_t>(entry)];
  }
  const Entry& at(int entry) const {
    return entries_[static_cast<size_t>(entry)];
  }
  bool count(Ref& ref, int list, int delta);
  void count_out(const Entry& e);
  void count_in(const Entry& e);
  void hold(const Holds& holds, int list, int delta);
  void link_back(int entry, int list);
  void unlink_order(int entry);
  void settle_order();
  void prefetch_removal(const Entry& e) const;
  void remove(int entry);
  void release(int entry);
  bool is_touched(const Entry& e) const;
  void note_touch(Entry& e) const;
  void forget_touched();
  void transfer(int entry, int list);
  int spare_entry();
  CachePopped popped(int entry) const;

  std::vector<Entry> entries_;
  std::vector<int32_t> free_;
  FlatMap<int> index_;
  int32_t head_[2] = {-1, -1};
  int32_t tail_[2] = {-1, -1};
  int64_t count_[2] = {0, 0};
  FlatMap<Ref> refs_;
  int64_t held_bytes_[2] = {0, 0};

 public:
  // A touch cycle is open. begin_touch or the host sets it; end_touch and clear reset it.
  bool touching = false;

 private:
  // What the open cycle has recorded: entries that bear its number, and keys that are not cached.
  uint16_t cycle_ = 1;
  FlatMap<char> touched_;

  // Entries that get found and that still have to become the most recent of their orders, oldest
  // first. Whatever reads or changes an order settles that before.
  static constexpr int found_room = 32;
  int32_t found_[found_room] = {};
  int found_count_ = 0;

  // The buffers that evict finds no longer held; kept for its storage.
  std::vector<int64_t> unheld_;
};

}  // namespace qv::graph
