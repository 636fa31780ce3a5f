#pragma once

#include <qv/transport/driver.h>

#include <cstdint>
#include <vector>

namespace qv::transport {

// One buffer of the ring and its mapping. `busy` and all of a free slot are guarded by the ring's
// lock; a busy slot belongs to the transfer in flight, which works on it without the lock.
struct Slot {
  uint32_t buffer = 0;     // 0: none
  void* mapped = nullptr;  // the whole buffer, readable as long as it lives
  uint64_t capacity = 0;   // bytes, whole MiB
  bool busy = false;
};

// The first free slot that holds `bytes`, else the first free slot, else null.
Slot* choose_slot(std::vector<Slot>& slots, uint64_t bytes);

// `bytes` in whole MiB: repeated reads of nearly the same size keep their buffer.
uint64_t slot_capacity(uint64_t bytes);

// Deletes the slot's buffer, if it has one, and makes a mapped one of `capacity` bytes. False, with
// the slot left without a buffer, when the driver does not map it.
bool replace_buffer(const Driver& driver, Slot& slot, uint64_t capacity);

// Unmaps and deletes the slot's buffer.
void delete_buffer(const Driver& driver, Slot& slot);

}  // namespace qv::transport
