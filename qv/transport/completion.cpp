#include <qv/transport/completion.h>

#include <atomic>
#include <cstddef>
#include <cstring>
#include <utility>

namespace qv::transport {
namespace {

// Asked again every 100 ms, a driver that loses a wake-up costs one slice; given up after 30 s, one
// that loses a fence cannot keep `wait` and `close` for ever.
constexpr uint64_t slice_nanoseconds = 100'000'000;
constexpr int slices = 300;

bool wait_for(const Driver& driver, void* display, void* fence) {
  for (int slice = 0; slice < slices; ++slice) {
    const int32_t answer = driver.client_wait_sync(display, fence, 0, slice_nanoseconds);
    if (answer != egl_timeout_expired) return answer == egl_condition_satisfied;
  }
  return false;
}

// Copies the chunks in order, each once its fence signals, and says so in `aux`; stops at the first
// fence that fails, because a frame with a hole is no frame. Returns how many chunks were copied.
size_t deliver(const Driver& driver, const Slot& slot, const Transfer& transfer) {
  size_t copied = 0;
  bool whole = true;
  for (const Chunk& chunk : transfer.chunks) {
    whole = whole && wait_for(driver, transfer.display, chunk.fence);
    if (whole) {
      std::memcpy(static_cast<std::byte*>(transfer.dst) + chunk.offset,
                  static_cast<const std::byte*>(slot.mapped) + chunk.offset, chunk.bytes);
      if (copied < transfer.aux_count)
        std::atomic_ref(transfer.aux[copied]).store(1, std::memory_order_release);
      ++copied;
    }
    driver.destroy_sync(transfer.display, chunk.fence);
  }
  return copied;
}

// Runs the callback and destroys it with all that it captured.
void call(std::function<void()>& callback) {
  if (!callback) return;
  try {
    callback();
  } catch (...) {
    // The frame is delivered whatever its receiver throws, and there is nobody here to tell.
  }
  callback = nullptr;
}

void count(Stats& stats, const Chunks& chunks, size_t copied) {
  for (size_t k = 0; k < copied; ++k) stats.bytes += chunks[k].bytes;
  ++(copied == chunks.size() ? stats.completed : stats.failed);
}

}  // namespace

void complete_transfers(State& state) {
  std::unique_lock lock(state.mutex);
  for (;;) {
    state.changed.wait(lock, [&] { return state.stopping || !state.queue.empty(); });
    if (state.queue.empty()) return;
    Transfer transfer = std::move(state.queue.front());
    state.queue.erase(state.queue.begin());
    Slot& slot = state.slots[static_cast<size_t>(transfer.slot)];

    lock.unlock();
    const size_t copied = deliver(state.driver, slot, transfer);
    if (copied < transfer.chunks.size()) {
      const std::lock_guard outcome(state.mutex);
      state.failures.set(transfer.ticket % remembered_outcomes);
    }
    call(transfer.callback);
    lock.lock();

    slot.busy = false;
    state.completed = transfer.ticket;
    count(state.stats, transfer.chunks, copied);
    state.changed.notify_all();
  }
}

}  // namespace qv::transport
