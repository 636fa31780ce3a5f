#pragma once

#include <qv/integers.h>

#include <cmath>
#include <cstdint>
#include <stdexcept>

// From doubles to integers where a caller should hear of what is none.
namespace qv::xform {

// `x`, a whole number, as an integer. Throws std::invalid_argument for NaN and std::overflow_error
// from 9.2e18 on, which leaves room to add a pixel.
inline int64_t checked_integer(double x) {
  if (std::isnan(x)) {
    throw std::invalid_argument("cannot convert float NaN to integer");
  }
  if (!(std::abs(x) < 9.2e18)) {
    throw std::overflow_error("cannot convert float infinity to integer");
  }
  return static_cast<int64_t>(x);
}

// `x` to the nearest integer, halves to the even one; throws as checked_integer.
inline int64_t checked_round(double x) {
  return checked_integer(std::nearbyint(x));
}

}  // namespace qv::xform
