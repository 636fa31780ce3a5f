#include "host/gpu/gpu_thread.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <mutex>
#include <new>
#include <optional>
#include <thread>
#include <utility>

#include <pthread.h>
#include <unistd.h>

namespace host::gpu {

struct GpuCall {
  std::function<void()> work;
  enum class Stage { queued, running, over } stage = Stage::queued;
  std::exception_ptr error;
};

namespace {

using CallPtr = std::shared_ptr<GpuCall>;

// The process whose threads there are, from the first one on; 0 before.
std::atomic<pid_t> started_in = 0;

// In a copy of the process drivers wait, at its exit, for threads of theirs that were not copied: it leaves
// without them, once those who came later have done what they had to.
void leave(int status, void* /*nothing*/) {
  std::fflush(nullptr);
  _exit(status);
}

void note_start() {
  if (started_in.exchange(getpid()) == 0) pthread_atfork(nullptr, nullptr, [] { on_exit(leave, nullptr); });
}

// Held while a context is open: a new thread's waits for the end of the last one's.
std::mutex& one_context() {
  static auto* const mutex = new std::mutex;
  return *mutex;
}

}  // namespace

// Shared with the thread, which may be the last to use it.
struct GpuThread::State {
  explicit State(const DeviceChoice& chosen) : choice(chosen), has_context(one_context(), std::defer_lock) {}

  const DeviceChoice choice;
  std::mutex mutex;  // guards what follows, up to the thread
  std::condition_variable changed;
  std::deque<CallPtr> calls;
  bool ending = false;
  std::thread thread;
  std::unique_lock<std::mutex> has_context;  // the thread's alone, as is the next
  std::optional<GpuContext> context;

  void work_off() {
    std::unique_lock lock(mutex);
    while (true) {
      changed.wait(lock, [this] { return ending || !calls.empty(); });
      if (calls.empty()) break;
      const CallPtr call = std::move(calls.front());
      calls.pop_front();
      call->stage = GpuCall::Stage::running;
      lock.unlock();
      try {
        call->work();
      } catch (...) {
        call->error = std::current_exception();
      }
      call->work = nullptr;
      lock.lock();
      call->stage = GpuCall::Stage::over;
      changed.notify_all();
    }
    lock.unlock();
    context.reset();
    if (has_context.owns_lock()) has_context.unlock();
  }
};

void GpuThread::check_process() {
  if (started_in == 0 || started_in == getpid()) return;
  throw Forked(
      "this process was forked from one that had begun to render, whose threads it does not have; start it "
      "anew instead (in Python: multiprocessing's method \"spawn\")");
}

std::shared_ptr<GpuThread> GpuThread::share(const DeviceChoice& choice) {
  static std::mutex mutex;
  static std::weak_ptr<GpuThread> shared;
  check_process();
  const std::lock_guard lock(mutex);
  std::shared_ptr<GpuThread> thread = shared.lock();
  if (!thread) {
    note_start();
    thread.reset(new GpuThread(choice));
    shared = thread;
  }
  const DeviceChoice& chosen = thread->state_->choice;
  if (chosen.kind != choice.kind || chosen.index != choice.index)
    throw std::invalid_argument("gpu: others in this process render on another device");
  return thread;
}

GpuThread::GpuThread(const DeviceChoice& choice) : state_(std::make_shared<State>(choice)) {
  state_->thread = std::thread([state = state_] { state->work_off(); });
}

GpuThread::~GpuThread() {
  if (started_in != getpid()) {
    // There is no thread to wait for, and its locks may be held for ever.
    (void)new (std::nothrow) std::shared_ptr<State>(state_);
    return;
  }
  {
    const std::lock_guard lock(state_->mutex);
    state_->ending = true;
  }
  state_->changed.notify_all();
  if (here()) {
    state_->thread.detach();
  } else {
    state_->thread.join();
  }
}

bool GpuThread::here() const {
  return std::this_thread::get_id() == state_->thread.get_id();
}

GpuContext& GpuThread::context() {
  State& state = *state_;
  if (!state.context) {
    if (!state.has_context.owns_lock()) state.has_context.lock();
    state.context.emplace(GpuContext::open(state.choice));
  }
  return *state.context;
}

void GpuThread::close_context() {
  state_->context.reset();
}

void GpuThread::queue(CallPtr call) {
  check_process();
  {
    const std::lock_guard lock(state_->mutex);
    state_->calls.push_back(std::move(call));
  }
  state_->changed.notify_all();
}

void GpuThread::post(std::function<void()> call) {
  const auto queued = std::make_shared<GpuCall>();
  queued->work = std::move(call);
  queue(queued);
}

bool GpuThread::run(const std::function<void()>& work, const GiveUp& give_up) {
  if (here())
    throw std::logic_error("the thread that draws cannot wait for itself, as in a progress callback");
  const auto call = std::make_shared<GpuCall>();
  call->work = work;
  queue(call);
  State& state = *state_;
  std::unique_lock lock(state.mutex);
  const auto over = [&call] { return call->stage == GpuCall::Stage::over; };
  bool given_up = !give_up;
  while (!over()) {
    if (given_up) {
      state.changed.wait(lock, over);
      break;
    }
    if (state.changed.wait_for(lock, std::chrono::milliseconds(50), over)) break;
    lock.unlock();
    given_up = give_up();
    lock.lock();
    if (given_up && std::erase(state.calls, call) > 0) return false;
  }
  lock.unlock();
  if (call->error) std::rethrow_exception(call->error);
  return true;
}

}  // namespace host::gpu
