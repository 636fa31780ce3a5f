#pragma once

#include <cstdint>

// Counts and fails the allocations of the program that links allocations.cpp, its libraries
// included, for it replaces operator new. Counts without locks, so for one thread; not under the
// thread sanitizer, which does not share operator new.
namespace support {

struct Allocations {
  uint64_t made = 0;
  int64_t live = 0;
  int64_t left = -1;  // until one fails; negative: none does
};
extern Allocations allocations;

}  // namespace support
