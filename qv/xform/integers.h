#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <stdexcept>

// From doubles to integers, never undefined: checked where a caller should hear of it, held to the
// ends where any number will do.
namespace qv::xform {

// `x`, a whole number, as an integer. Throws std::invalid_argument for NaN and std::overflow_error
// from 9.2e18 on, which leaves room to add a pixel.
inline std::int64_t checked_integer(double x) {
  if (std::isnan(x)) {
    throw std::invalid_argument("cannot convert float NaN to integer");
  }
  if (!(std::abs(x) < 9.2e18)) {
    throw std::overflow_error("cannot convert float infinity to integer");
  }
  return static_cast<std::int64_t>(x);
}

// `x` to the nearest integer, halves to the even one; throws as checked_integer.
inline std::int64_t checked_round(double x) {
  return checked_integer(std::nearbyint(x));
}

// `x` without its fraction, held to what Integer can be; NaN is 0.
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

}  // namespace qv::xform
