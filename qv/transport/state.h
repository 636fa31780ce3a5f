#pragma once

#include <qv/transport/driver.h>
#include <qv/transport/read.h>
#include <qv/transport/ring.h>
#include <qv/transport/slots.h>

#include <bitset>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace qv::transport {

inline constexpr uint64_t largest_ring = 8;
inline constexpr uint64_t remembered_outcomes = 1024;

// A transfer whose reads and fences are queued with the driver and which has its ticket.
struct Transfer {
  uint64_t ticket = 0;
  int32_t slot = -1;
  void* display = nullptr;
  Chunks chunks;
  void* dst = nullptr;
  unsigned* aux = nullptr;
  unsigned aux_count = 0;
  std::function<void()> callback;
};

// The ring of the process. Everything is guarded by `mutex`, but for what a busy slot's transfer
// owns and for `driver`, which is fixed while the ring is initialized. `changed` is broadcast
// whenever a wait might end: on queueing, completion, a slot's release or addition, and the end.
//
// Invariants, whenever the mutex is free: next_ticket - 1 - completed transfers are pending, the
// queue holds them in ticket order but for the one that the background thread is delivering, and
// each has a busy slot of its own.
struct State {
  // Slots never move, because transfers work on theirs without the lock; and a transfer whose reads are
  // on their way has a place in the queue, since it has a slot.
  State() {
    slots.reserve(largest_ring);
    queue.reserve(largest_ring);
  }

  std::mutex mutex;
  std::condition_variable changed;
  bool initialized = false;
  bool stopping = false;
  uint64_t ring_size = 3;
  std::vector<Slot> slots;
  std::vector<Transfer> queue;
  uint64_t next_ticket = 1;
  uint64_t completed = 0;
  std::thread thread;
  // Whether a ticket failed, at its number modulo the size; cleared as the ticket is issued.
  std::bitset<remembered_outcomes> failures;
  Stats stats;
  Driver driver;
};

}  // namespace qv::transport
