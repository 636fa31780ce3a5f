#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <utility>

namespace host::live::session {

// Calls to somebody outside, made one at a time in the order in which they were put in, by whichever thread
// comes first, without a lock. Thread-safe.
class Outbox {
 public:
  using Call = std::function<void()>;

  void put(Call call) {
    const std::lock_guard lock(mutex_);
    if (!closed_) calls_.push_back(std::move(call));
  }

  // Drops what is there and what comes.
  void close() {
    const std::lock_guard lock(mutex_);
    closed_ = true;
    calls_.clear();
  }

  // Makes the calls that are there, unless another thread is about it, which then makes them.
  void send() {
    std::unique_lock lock(mutex_);
    if (sending_) return;
    sending_ = true;
    while (!calls_.empty()) {
      const Call call = std::move(calls_.front());
      calls_.pop_front();
      lock.unlock();
      call();
      lock.lock();
    }
    sending_ = false;
  }

  bool empty() const {
    const std::lock_guard lock(mutex_);
    return calls_.empty() && !sending_;
  }

 private:
  mutable std::mutex mutex_;
  std::deque<Call> calls_;
  bool sending_ = false;
  bool closed_ = false;
};

}  // namespace host::live::session
