#pragma once

#include <qv/graph/table_memory.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <utility>
#include <vector>

namespace qv::graph {

// Maps 64-bit keys to small values: one array of slots, a power of two long, linear probing, at most
// three quarters full, no tombstones (erasing shifts the rest of a run back).
// Pointers to values stay valid until the next insert that grows the table, reserve, erase or clear.
// Owns its values; T is default-constructible and copyable, and T{} is what a new key starts with.
// Externally synchronised; const calls may run side by side. Every call O(1) expected, growing O(n).
// Only insert and reserve allocate: std::bad_alloc, or std::length_error ("vector too long") past
// 2^60 - 1 slots, and the map is then as it was.
template <class T>
class FlatMap {
 public:
  FlatMap() = default;
  FlatMap(const FlatMap&) = default;
  FlatMap(FlatMap&& other) noexcept {
    swap(other);
  }
  FlatMap& operator=(FlatMap other) noexcept {
    swap(other);
    return *this;
  }
  ~FlatMap() = default;

  // Where a key's probing starts, before masking: the 64-bit finaliser of MurmurHash3 (Appleby).
  static uint64_t h(int64_t key) {
    auto k = static_cast<uint64_t>(key);
    k = (k ^ (k >> 33)) * 0xff51afd7ed558ccd;
    k = (k ^ (k >> 33)) * 0xc4ceb9fe1a85ec53;
    return k ^ (k >> 33);
  }

  // The value of a key, null where the key is absent.
  T* find(int64_t key) {
    return const_cast<T*>(std::as_const(*this).find(key));
  }
  const T* find(int64_t key) const;
  bool contains(int64_t key) const {
    return find(key) != nullptr;
  }

  // The value of a key, added as T{} where it was absent, and whether it was added.
  std::pair<T*, bool> insert(int64_t key);

  // Removes a key; false where it was absent.
  bool erase(int64_t key);

  // Removes every key and keeps the storage.
  void clear();

  // Asks for the memory where a key's probing starts, so that a call soon after need not wait for it.
  void prefetch(int64_t key) const {
    if (!slots_.empty()) __builtin_prefetch(&slots_[home(key)]);
  }

  // Makes the next `more` inserts unable to fail or to move a value.
  void reserve(uint64_t more) {
    if (more > max_slots - count_) throw std::length_error("vector too long");
    if (!has_room(more)) grow_for(more);
  }

  // Whether the next `more` inserts, of keys that are there or not, leave the table as large as it is.
  bool has_room(uint64_t more) const {
    return (count_ + more) * 4 <= slots_.size() * 3;
  }

  // The number of keys, and of slots (0 or a power of two).
  uint64_t size() const {
    return count_;
  }
  uint64_t capacity() const {
    return slots_.size();
  }

 private:
  struct S {
    int64_t key = 0;
    T value{};
    bool used = false;
  };
  using Slots = std::vector<S, TableAllocator<S>>;

  static constexpr uint64_t max_slots = (uint64_t{1} << 60) - 1;
  static constexpr uint64_t near_slots = uint64_t{1} << 18;  // 4 MiB of small values

  void swap(FlatMap& other) noexcept {
    slots_.swap(other.slots_);
    std::swap(count_, other.count_);
    std::swap(mask_, other.mask_);
  }
  uint64_t home(int64_t key) const {
    return h(key) & mask_;
  }
  void grow() {
    rebuild(slots_.empty() ? 64 : slots_.size() * 2);
  }
  void grow_for(uint64_t more);
  void rebuild(uint64_t slot_count);

  Slots slots_;
  uint64_t count_ = 0;
  uint64_t mask_ = 0;
};

template <class T>
const T* FlatMap<T>::find(int64_t key) const {
  if (count_ == 0) return nullptr;
  const S* const slots = slots_.data();
  const uint64_t i = home(key), next = (i + 1) & mask_;
  // Where a key lies at its home or right behind it no processor can guess, and nearly all do. Where
  // the slots are near, arithmetic picks the slot for less than a wrong guess costs; where they are
  // far, waiting for the home's content would keep the next call's memory from being asked for.
  const uint64_t likely = mask_ < near_slots ? (i + (slots[i].key != key)) & mask_ : i;
  if (slots[likely].key == key && slots[likely].used) return &slots[likely].value;

  // One test for all other ways to end within two slots, for the same reason.
  const bool both_used = slots[i].used & slots[next].used;
  if (!(both_used & (slots[next].key != key))) return both_used ? &slots[next].value : nullptr;
  for (uint64_t j = (next + 1) & mask_;; j = (j + 1) & mask_) {
    if (!slots[j].used) return nullptr;
    if (slots[j].key == key) return &slots[j].value;
  }
}

template <class T>
std::pair<T*, bool> FlatMap<T>::insert(int64_t key) {
  if (!has_room(1)) grow();
  S* const slots = slots_.data();
  uint64_t i = home(key);
  for (; slots[i].used; i = (i + 1) & mask_)
    if (slots[i].key == key) return {&slots[i].value, false};
  slots[i] = {key, T{}, true};
  ++count_;
  return {&slots[i].value, true};
}

template <class T>
bool FlatMap<T>::erase(int64_t key) {
  if (count_ == 0) return false;
  S* const slots = slots_.data();
  uint64_t i = home(key);
  for (; slots[i].key != key || !slots[i].used; i = (i + 1) & mask_)
    if (!slots[i].used) return false;

  // Close the hole: every entry of the run behind it whose home does not lie between the hole and
  // itself would no longer be found, so it moves into the hole and leaves one of its own.
  for (uint64_t j = (i + 1) & mask_; slots[j].used; j = (j + 1) & mask_) {
    const uint64_t from_home = (j - home(slots[j].key)) & mask_;
    if (from_home < ((j - i) & mask_)) continue;
    slots[i] = slots[j];
    i = j;
  }
  slots[i].value = T{};
  slots[i].used = false;
  --count_;
  return true;
}

template <class T>
void FlatMap<T>::clear() {
  std::fill(slots_.begin(), slots_.end(), S{});
  count_ = 0;
}

template <class T>
void FlatMap<T>::grow_for(uint64_t more) {
  uint64_t slot_count = std::max<uint64_t>(64, slots_.size());
  while ((count_ + more) * 4 > slot_count * 3) slot_count *= 2;
  rebuild(slot_count);
}

// Moves every entry into a new table, in ascending order of the old slots, so that both tables are
// read and written front to back. Allocates first: where that fails, nothing has changed.
template <class T>
void FlatMap<T>::rebuild(uint64_t slot_count) {
  if (slot_count > max_slots || slot_count > slots_.max_size()) throw std::length_error("vector too long");
  Slots slots(slot_count);
  const uint64_t mask = slot_count - 1;
  for (const S& old : slots_) {
    if (!old.used) continue;
    uint64_t i = h(old.key) & mask;
    while (slots[i].used) i = (i + 1) & mask;
    slots[i] = old;
  }
  slots_.swap(slots);
  mask_ = mask;
}

}  // namespace qv::graph
