#include <qv/transport/completion.h>
#include <qv/transport/ring.h>
#include <qv/transport/state.h>

#include <algorithm>
#include <functional>
#include <string>
#include <system_error>
#include <utility>

namespace qv::transport {
namespace {

// Never destroyed: a host that exits without `close` leaves the background thread waiting on it.
State& ring() {
  static State& state = *new State;
  return state;
}

bool all_complete(const State& state) {
  return state.completed == state.next_ticket - 1;
}

bool all_free(const State& state) {
  return std::none_of(state.slots.begin(), state.slots.end(), [](const Slot& slot) { return slot.busy; });
}

// A slot's time in a start, from its choice until the transfer that has it is queued. One that is
// not handed on becomes free again.
class Claim {
 public:
  // Waits for a free slot; claims none when the ring is not ready, or on its background thread,
  // which would wait there for itself.
  Claim(State& state, uint64_t bytes) : state_(state) {
    std::unique_lock lock(state_.mutex);
    state_.changed.wait(lock, [&] { return !usable() || (slot_ = choose_slot(state_.slots, bytes)); });
    if (slot_) slot_->busy = true;
  }
  ~Claim() {
    if (!slot_) return;
    const std::lock_guard lock(state_.mutex);
    slot_->busy = false;
    state_.changed.notify_all();
  }
  Claim(const Claim&) = delete;
  Claim& operator=(const Claim&) = delete;

  Slot* slot() const {
    return slot_;
  }

  // Queues the transfer, which keeps the slot, and returns its ticket.
  uint64_t hand_on(Transfer transfer) {
    const std::lock_guard lock(state_.mutex);
    transfer.slot = static_cast<int32_t>(slot_ - state_.slots.data());
    transfer.ticket = state_.next_ticket;
    state_.failures.reset(transfer.ticket % remembered_outcomes);
    state_.queue.push_back(std::move(transfer));
    ++state_.stats.started;
    slot_ = nullptr;
    state_.changed.notify_all();
    return state_.next_ticket++;
  }

 private:
  bool usable() const {
    return state_.initialized && !state_.stopping && std::this_thread::get_id() != state_.thread.get_id();
  }

  State& state_;
  Slot* slot_ = nullptr;
};

// Sees to it that the slot holds `bytes`.
bool fit(State& state, Slot& slot, uint64_t bytes) {
  if (slot.capacity >= bytes) return true;
  const uint64_t before = slot.capacity;
  const bool fits = replace_buffer(state.driver, slot, slot_capacity(bytes));
  const std::lock_guard lock(state.mutex);
  state.stats.held += slot.capacity - before;
  if (fits) ++state.stats.allocations;
  return fits;
}

void add_slots(State& state) {
  if (state.slots.size() < state.ring_size) state.slots.resize(state.ring_size);
}

}  // namespace

bool init(std::string* err) {
  State& state = ring();
  std::unique_lock lock(state.mutex);
  state.changed.wait(lock, [&] { return !state.stopping; });
  if (state.initialized) return true;
  if (!load(state.driver)) {
    if (err) *err = "libEGL.so.1 / eglGetProcAddress not available";
    return false;
  }
  add_slots(state);
  try {
    state.thread = std::thread(complete_transfers, std::ref(state));
  } catch (const std::system_error& failure) {
    if (err) *err = std::string("no background thread: ") + failure.what();
    return false;
  }
  state.initialized = true;
  return true;
}

bool ready() {
  State& state = ring();
  const std::lock_guard lock(state.mutex);
  return state.initialized;
}

uint64_t start(unsigned read_framebuffer, unsigned restore_framebuffer, int x, int y, int width, int height,
               int channels, void* dst, unsigned* aux, unsigned aux_count, std::function<void()> callback) {
  const Read read{read_framebuffer, x, y, width, height, channels};
  const std::optional<uint64_t> bytes = byte_count(read);
  if (!bytes || !dst) return 0;

  State& state = ring();
  Claim claim(state, *bytes);
  if (!claim.slot() || !fit(state, *claim.slot(), *bytes)) return 0;

  Transfer transfer;
  transfer.display = state.driver.get_current_display();
  transfer.chunks =
      issue(state.driver, transfer.display, claim.slot()->buffer, read, *bytes, restore_framebuffer);
  if (transfer.chunks.empty()) return 0;
  transfer.dst = dst;
  transfer.aux = aux;
  transfer.aux_count = aux ? std::min(aux_count, static_cast<unsigned>(transfer.chunks.size())) : 0;
  std::fill_n(aux, transfer.aux_count, 0U);
  transfer.callback = std::move(callback);
  return claim.hand_on(std::move(transfer));
}

bool done(uint64_t ticket) {
  State& state = ring();
  const std::lock_guard lock(state.mutex);
  return ticket >= state.next_ticket || ticket <= state.completed;
}

bool failed(uint64_t ticket) {
  State& state = ring();
  const std::lock_guard lock(state.mutex);
  const bool remembered = ticket < state.next_ticket && state.next_ticket - ticket <= remembered_outcomes;
  return remembered && state.failures.test(ticket % remembered_outcomes);
}

uint64_t current_ticket() {
  State& state = ring();
  const std::lock_guard lock(state.mutex);
  return std::this_thread::get_id() == state.thread.get_id() ? state.completed + 1 : 0;
}

void wait(uint64_t ticket) {
  State& state = ring();
  std::unique_lock lock(state.mutex);
  if (ticket < state.next_ticket) state.changed.wait(lock, [&] { return state.completed >= ticket; });
}

void wait_all() {
  State& state = ring();
  std::unique_lock lock(state.mutex);
  state.changed.wait(lock, [&] { return all_complete(state); });
}

int pending() {
  State& state = ring();
  const std::lock_guard lock(state.mutex);
  return static_cast<int>(state.next_ticket - 1 - state.completed);
}

void set_ring_size(int n) {
  State& state = ring();
  const std::lock_guard lock(state.mutex);
  state.ring_size = static_cast<uint64_t>(std::clamp(n, 1, static_cast<int>(largest_ring)));
  add_slots(state);
  state.changed.notify_all();
}

Stats stats() {
  State& state = ring();
  const std::lock_guard lock(state.mutex);
  return state.stats;
}

void close() {
  State& state = ring();
  std::unique_lock lock(state.mutex);
  // A slot without a ticket belongs to a start of another thread, which is still to queue it.
  state.changed.wait(lock, [&] {
    return !state.initialized || (all_complete(state) && all_free(state) && !state.stopping);
  });
  if (!state.initialized) return;
  std::vector<Slot> slots = state.slots;
  std::fill(state.slots.begin(), state.slots.end(), Slot{});
  std::thread thread = std::move(state.thread);
  state.stopping = true;
  state.changed.notify_all();
  lock.unlock();

  thread.join();
  for (Slot& slot : slots) {
    if (slot.buffer != 0) delete_buffer(state.driver, slot);
  }

  lock.lock();
  state.stats.held = 0;
  state.initialized = false;
  state.stopping = false;
  state.changed.notify_all();
}

}  // namespace qv::transport
