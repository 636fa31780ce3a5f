#pragma once

#include <cmath>
#include <limits>

namespace qv {

// `x` without its fraction, held to what Integer can be; NaN is 0. The one way from a double to an
// integer where any number will do. Thread-safe.
template <class Integer>
Integer truncated(double x) {
  using Limits = std::numeric_limits<Integer>;
  if (std::isnan(x)) {
    return 0;
  }
  // The least integer is a power of two, so its negative is the first double above the range.
  if (x >= -static_cast<double>(Limits::min())) {
    return Limits::max();
  }
  return x <= static_cast<double>(Limits::min()) ? Limits::min() : static_cast<Integer>(x);
}

}  // namespace qv
