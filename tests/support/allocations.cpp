#include "tests/support/allocations.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace support {

constinit Allocations allocations;
constinit thread_local int64_t Allocations::left = -1;
constinit thread_local bool Allocations::here = false;

namespace {

constinit thread_local int spared = 0;

void* allocate(size_t size, size_t alignment) {
  if (spared == 0 && allocations.left >= 0 && allocations.left-- == 0) throw std::bad_alloc();
  if (size != 0 && size == allocations.refused_elsewhere && !allocations.here) throw std::bad_alloc();
  const size_t whole = (std::max<size_t>(size, 1) + alignment - 1) / alignment * alignment;
  void* const memory =
      alignment > alignof(std::max_align_t) ? std::aligned_alloc(alignment, whole) : std::malloc(whole);
  if (!memory) throw std::bad_alloc();
  ++allocations.made;
  ++allocations.live;
  size_t most = allocations.largest;
  while (most < size && !allocations.largest.compare_exchange_weak(most, size)) continue;
  return memory;
}

void release(void* memory) noexcept {
  if (memory) --allocations.live;
  std::free(memory);
}

}  // namespace

}  // namespace support

void support_spare_allocations(bool spare) {
  support::spared += spare ? 1 : -1;
}

void* operator new(size_t size) {
  return support::allocate(size, 1);
}
void* operator new(size_t size, std::align_val_t alignment) {
  return support::allocate(size, static_cast<size_t>(alignment));
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  try {
    return support::allocate(size, 1);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void operator delete(void* memory) noexcept {
  support::release(memory);
}
void operator delete(void* memory, size_t) noexcept {
  support::release(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
  support::release(memory);
}
void operator delete(void* memory, size_t, std::align_val_t) noexcept {
  support::release(memory);
}
