#include <qv/huge_pages.h>

#include <memory>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace qv {

void prefer_huge_pages([[maybe_unused]] void* begin, [[maybe_unused]] size_t bytes) noexcept {
#if defined(__linux__)
  constexpr size_t huge = size_t{2} << 20;
  void* first = begin;
  size_t room = bytes;
  if (std::align(huge, huge, first, room)) ::madvise(first, room & ~(huge - 1), MADV_HUGEPAGE);
#endif
}

}  // namespace qv
