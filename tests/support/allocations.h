#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

// Counts and fails the allocations of the program that links allocations.cpp, its libraries
// included, for it replaces operator new; not under the thread sanitizer, which does not share that.
namespace support {

struct Allocations {
  std::atomic<uint64_t> made{0};
  std::atomic<int64_t> live{0};
  std::atomic<size_t> largest{0};            // bytes, of those since a test has set it to 0
  static thread_local int64_t left;          // on this thread, until one fails; negative: none does
  std::atomic<size_t> refused_elsewhere{0};  // bytes that no thread gets but those that are `here`
  static thread_local bool here;
};
extern Allocations allocations;

}  // namespace support

// Spares the calling thread's allocations while more calls said true than false: a driver of the tests
// stands in for one that allocates without operator new.
extern "C" void support_spare_allocations(bool spare);
