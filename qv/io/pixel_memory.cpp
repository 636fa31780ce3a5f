#include <qv/io/pixel_memory.h>

#include <limits>

namespace qv::io {

std::optional<size_t> float_count(int64_t width, int64_t height, int64_t channels) {
  constexpr uint64_t limit = std::numeric_limits<ptrdiff_t>::max() / sizeof(float);
  uint64_t count = 1;
  for (const int64_t factor : {width, height, channels}) {
    if (factor < 0) return std::nullopt;
    const auto size = static_cast<uint64_t>(factor);
    if (size != 0 && count > limit / size) return std::nullopt;
    count *= size;
  }
  return static_cast<size_t>(count);
}

}  // namespace qv::io
