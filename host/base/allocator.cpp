#include "host/base/allocator.h"

#include <cstdlib>

#if defined(__GLIBC__)
#include <malloc.h>
#endif

namespace host {

void keep_freed_memory() {
#if defined(__GLIBC__)
  constexpr int most_kept = 1 << 30;
  mallopt(M_ARENA_MAX, 1);  // memory that one thread frees serves the next
  mallopt(M_MMAP_THRESHOLD, most_kept);
  mallopt(M_TRIM_THRESHOLD, most_kept);
#endif
}

void return_freed_memory() {
#if defined(__GLIBC__)
  malloc_trim(0);
#endif
}

}  // namespace host
