#pragma once

#include <chrono>

namespace host {

// Adds the milliseconds of its own life to a counter.
class Stopwatch {
 public:
  explicit Stopwatch(double& milliseconds) : total_(milliseconds) {}
  ~Stopwatch() {
    total_ += elapsed_ms();
  }
  Stopwatch(const Stopwatch&) = delete;
  Stopwatch& operator=(const Stopwatch&) = delete;

  double elapsed_ms() const {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin_).count();
  }

 private:
  double& total_;
  std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};

}  // namespace host
