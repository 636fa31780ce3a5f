#include "host/base/memory_use.h"

#include <algorithm>
#include <fstream>
#include <mutex>
#include <numeric>

#include <unistd.h>

namespace host {

uint64_t Holdings::sum() const {
  return std::accumulate(bytes.begin(), bytes.end(), uint64_t{0});
}

struct MemoryUse::State {
  bool device_apart = false;
  std::mutex mutex;  // guards what follows
  Holdings now, peaks, at_most;

  uint64_t counted(const Holdings& holdings) const {
    return holdings.sum() - (device_apart ? holdings.of(Owner::device) : 0);
  }
};

MemoryUse::MemoryUse(bool device_apart) : state_(std::make_shared<State>()) {
  state_->device_apart = device_apart;
}

Holdings MemoryUse::now() const {
  const std::lock_guard lock(state_->mutex);
  return state_->now;
}

Holdings MemoryUse::peaks() const {
  const std::lock_guard lock(state_->mutex);
  return state_->peaks;
}

Holdings MemoryUse::at_most() const {
  const std::lock_guard lock(state_->mutex);
  return state_->at_most;
}

void Account::set(uint64_t bytes) {
  MemoryUse::State& all = *use_.state_;
  const auto place = static_cast<size_t>(owner_);
  const std::lock_guard lock(all.mutex);
  all.now.bytes[place] += bytes - bytes_;  // modulo 2^64, as differences are
  bytes_ = bytes;
  all.peaks.bytes[place] = std::max(all.peaks.bytes[place], all.now.bytes[place]);
  if (all.counted(all.now) > all.counted(all.at_most)) all.at_most = all.now;
}

uint64_t resident_bytes() {
  std::ifstream statm("/proc/self/statm");
  uint64_t all = 0, resident = 0;
  if (!(statm >> all >> resident)) return 0;
  return resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace host
