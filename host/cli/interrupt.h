#pragma once

#include <atomic>

namespace host::cli {

// While it lives, Ctrl-C and a request to terminate set a flag instead of ending the process, so that
// the frame in hand can be finished or dropped whole. A second one ends it at once, as without this.
// One at a time in a process.
class InterruptFlag {
 public:
  InterruptFlag();
  ~InterruptFlag();
  InterruptFlag(const InterruptFlag&) = delete;
  InterruptFlag& operator=(const InterruptFlag&) = delete;

  // Thread-safe; the address holds for the life of the process.
  const std::atomic<bool>& raised() const;

  // Whether it was a request to terminate, as a scheduler sends that wants the machine back.
  bool terminated() const;
};

}  // namespace host::cli
