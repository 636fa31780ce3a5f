#pragma once

#include <qv/huge_pages.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

namespace qv::io {

// width x height x channels, or nothing when a factor is negative or that many floats would not
// fit the address space.
std::optional<size_t> float_count(int64_t width, int64_t height, int64_t channels);

// An array of max(1, count) numbers whose values are undefined: pages of it are touched by whoever
// writes them first. Throws std::bad_alloc.
template <class Number>
std::unique_ptr<Number[]> uninitialised(size_t count) {
  const size_t size = std::max<size_t>(count, 1);
  std::unique_ptr<Number[]> result(new Number[size]);
  prefer_huge_pages(result.get(), size * sizeof(Number));
  return result;
}

}  // namespace qv::io
