#pragma once

#include <array>
#include <cstdint>

namespace host::gpu {

// Measures what a device spends on stretches of drawing by its own clock, without waiting for it:
// results are picked up as they come. Not for software devices: llvmpipe answers with nonsense once
// several of its threads have drawn. GL thread only; the context is current from first to last.
class Timer {
 public:
  Timer();
  ~Timer();
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  // Around a stretch; stretches do not nest. One that finds every query in flight is not measured,
  // but counted as long as the mean of the others.
  void begin();
  void end();

  // Milliseconds of all stretches so far that are known; `wait`: of all, waiting for the device.
  double total_ms(bool wait);

 private:
  struct Query {
    uint32_t name = 0;
    bool in_flight = false;
  };
  void collect(Query& query, bool wait);

  std::array<Query, 8> queries_;
  Query* open_ = nullptr;
  double known_ms_ = 0;
  int64_t measured_ = 0;
  int64_t missed_ = 0;
};

}  // namespace host::gpu
