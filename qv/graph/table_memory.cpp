#include <qv/graph/table_memory.h>

#ifdef __linux__
#include <sys/mman.h>
#endif

namespace qv::graph {

void prefer_huge_pages([[maybe_unused]] void* memory, [[maybe_unused]] size_t bytes) noexcept {
#ifdef __linux__
  madvise(memory, bytes, MADV_HUGEPAGE);
#endif
}

}  // namespace qv::graph
