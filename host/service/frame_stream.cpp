#include "host/service/frame_stream.h"

#include "host/draw/limits.h"
#include "host/service/shared_renderer_state.h"

#include <chrono>
#include <cstdint>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

namespace host::service {
namespace {

// One image on its way. A callback that is dropped, or that finds no memory, has let it down.
class Arrival {
 public:
  Arrival(std::shared_ptr<Arrivals> arrivals, std::shared_ptr<Arrivals::Slot> slot)
      : arrivals_(std::move(arrivals)), slot_(std::move(slot)) {}
  ~Arrival() {
    finish(std::make_exception_ptr(std::bad_alloc()));
  }
  Arrival(const Arrival&) = delete;
  Arrival& operator=(const Arrival&) = delete;

  void arrive(draw::FrameImage image, const std::string& error) {
    slot_->image = std::move(image);
    finish(error.empty() ? nullptr : std::make_exception_ptr(frame::FrameError(error)));
  }

  void finish(const std::exception_ptr& error) {
    const std::lock_guard lock(arrivals_->mutex);
    if (std::exchange(slot_->over, true)) return;
    slot_->error = error;
    const Box& area = slot_->image.area;
    arrivals_->image_bytes =
        uint64_t{16} * static_cast<uint64_t>(box_width(area)) * static_cast<uint64_t>(box_height(area));
    arrivals_->changed.notify_all();
  }

 private:
  std::shared_ptr<Arrivals> arrivals_;
  std::shared_ptr<Arrivals::Slot> slot_;
};

void drop(Arrivals& arrivals, const std::shared_ptr<Arrivals::Slot>& slot) {
  const std::lock_guard lock(arrivals.mutex);
  std::erase(arrivals.slots, slot);
}

}  // namespace

void FrameStream::State::draw_on() {
  if (arrivals->drawing || arrivals->all || arrivals->slots.size() >= draw::images_ahead) return;
  renderer->thread()->post([state = shared_from_this()] { state->draw_one(); });
  arrivals->drawing = true;
}

void FrameStream::State::draw_one() {
  const auto slot = std::make_shared<Arrivals::Slot>();
  bool draws = false;
  {
    const std::lock_guard lock(arrivals->mutex);
    const bool room = arrivals->slots.empty() || !renderer->renderer ||
                      renderer->renderer->held().room(arrivals->image_bytes);
    draws = room && !stop && !arrivals->all;
    if (draws) arrivals->slots.push_back(slot);
  }
  bool more = false;
  if (draws) {
    const auto arrival = std::make_shared<Arrival>(arrivals, slot);
    try {
      if (!sequence) {
        sequence = renderer->renderer_of(composition).sequence(request, frames);
        renderer->streams.insert(shared_from_this());
      }
      more = sequence->draw_next([arrival](draw::FrameImage image, const std::string& error) {
        arrival->arrive(std::move(image), error);
      });
      if (!more) drop(*arrivals, slot);
      renderer->keep_notices();
    } catch (...) {
      arrival->finish(std::current_exception());
    }
  }
  const std::lock_guard lock(arrivals->mutex);
  arrivals->drawing = false;
  if (draws && !more) arrivals->all = true;
  arrivals->changed.notify_all();
  try {
    if (more) draw_on();
  } catch (const std::exception&) {
    arrivals->all = true;  // it is closed, and has told so
  }
}

void FrameStream::State::end(const std::exception_ptr& why) {
  sequence.reset();
  const std::lock_guard lock(arrivals->mutex);
  arrivals->all = true;
  if (why) {
    const auto slot = std::make_shared<Arrivals::Slot>();
    slot->over = true;
    slot->error = why;
    arrivals->slots.push_back(slot);
  }
  arrivals->changed.notify_all();
}

FrameStream::FrameStream(std::shared_ptr<State> state) : state_(std::move(state)) {}

FrameStream::~FrameStream() {
  try {
    gpu::GpuThread::check_process();
    state_->stop = true;
    state_->renderer->remove_stop(state_->stop);
    state_->renderer->thread()->post([state = state_] {
      state->end(nullptr);
      state->renderer->streams.erase(state);
    });
  } catch (const gpu::Forked&) {
    (void)new (std::nothrow) std::shared_ptr<State>(state_);
  } catch (const Closed&) {
    return;  // closed, which ends it
  }
}

std::optional<draw::FrameImage> FrameStream::next(const gpu::GpuThread::GiveUp& give_up) {
  gpu::GpuThread::check_process();
  Arrivals& arrivals = *state_->arrivals;
  std::unique_lock lock(arrivals.mutex);
  if (arrivals.slots.empty()) state_->draw_on();
  const auto ready = [&arrivals] {
    if (arrivals.slots.empty()) return !arrivals.drawing;
    return arrivals.slots.front()->over;
  };
  while (!arrivals.changed.wait_for(lock, std::chrono::milliseconds(50), ready)) {
    lock.unlock();
    const bool ends = give_up && give_up();
    lock.lock();
    if (!ends) continue;
    state_->stop = true;
    arrivals.changed.wait(lock, [&arrivals] { return !arrivals.drawing; });
    arrivals.all = true;
    decltype(arrivals.slots) dropped;  // goes once the lock has
    dropped.swap(arrivals.slots);
    lock.unlock();
    throw frame::Interrupted();
  }
  if (arrivals.slots.empty()) return std::nullopt;
  const auto slot = arrivals.slots.front();
  arrivals.slots.pop_front();
  if (slot->error) {
    arrivals.all = true;
    std::rethrow_exception(slot->error);
  }
  state_->draw_on();
  return std::move(slot->image);
}

}  // namespace host::service
