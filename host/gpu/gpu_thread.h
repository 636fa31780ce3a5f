#pragma once

#include "host/gpu/gpu_context.h"

#include <functional>
#include <memory>
#include <stdexcept>

namespace host::gpu {

// The process is a copy, by fork, of one that had a thread for drawing: threads are not copied.
class Forked : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct GpuCall;

// The thread that draws for those who live on others: calls queue, and run there one at a time in the order
// in which they came. The process has one, because it has one context; who holds the pointer shares it. It
// ends, and the context with it, when the last one lets go. Thread-safe, but for what says otherwise.
class GpuThread {
 public:
  // Asked every 50 ms by who waits: whether to give up waiting. May take locks that the work takes.
  using GiveUp = std::function<bool()>;

  // Throws Forked, and std::invalid_argument when others have begun with another choice.
  static std::shared_ptr<GpuThread> share(const DeviceChoice& choice);
  ~GpuThread();
  GpuThread(const GpuThread&) = delete;
  GpuThread& operator=(const GpuThread&) = delete;

  // Runs a call and waits for its end; what it throws comes out here. Once `give_up` says so, a call that has
  // not begun is taken back, and the answer is false; the end of one that has begun is waited for, so let
  // `give_up` bring that about. Throws Forked, and std::logic_error on the thread itself, which would wait
  // for itself.
  bool run(const std::function<void()>& call, const GiveUp& give_up = {});

  // Queues a call that nobody waits for and that throws nothing. Throws Forked.
  void post(std::function<void()> call);

  // Throws Forked.
  static void check_process();

  // Whether the calling thread is it.
  bool here() const;

  // On the thread alone. Opened at first use; throws NoGpu.
  GpuContext& context();

  // On the thread alone: closes the context, one that is lost above all, so that the next use opens another.
  // What was made in it has gone before.
  void close_context();

 private:
  struct State;
  explicit GpuThread(const DeviceChoice& choice);
  void queue(std::shared_ptr<GpuCall> call);
  std::shared_ptr<State> state_;
};

}  // namespace host::gpu
