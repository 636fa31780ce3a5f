#pragma once

#include <qv/huge_pages.h>

#include <cstddef>
#include <new>

namespace qv::graph {

// The allocator of a hash table. A large table is read all over at random, and would otherwise wait
// for the processor's page tables about as often as for itself: it lies in huge pages.
// Throws what operator new throws. Thread-safe.
template <class Slot>
struct TableAllocator {
  using value_type = Slot;

  TableAllocator() = default;
  template <class Other>
  // NOLINTNEXTLINE(google-explicit-constructor): containers convert allocators without asking.
  TableAllocator(const TableAllocator<Other>&) noexcept {}

  Slot* allocate(size_t n) {
    if (n > static_cast<size_t>(-1) / sizeof(Slot)) throw std::bad_array_new_length();
    const size_t bytes = n * sizeof(Slot);
    void* const memory = ::operator new(bytes, alignment(n));
    if (bytes >= huge_page) prefer_huge_pages(memory, bytes);
    return static_cast<Slot*>(memory);
  }
  void deallocate(Slot* slots, size_t n) noexcept {
    ::operator delete(slots, alignment(n));
  }

  friend bool operator==(const TableAllocator&, const TableAllocator&) = default;

 private:
  static constexpr size_t huge_page = size_t{2} << 20;
  static constexpr size_t cache_line = 64;

  // Several slots share a cache line, and none lies on two.
  static std::align_val_t alignment(size_t n) {
    return std::align_val_t{n * sizeof(Slot) >= huge_page ? huge_page : cache_line};
  }
};

}  // namespace qv::graph
