#include <qv/anim/curve.h>

#include <cstddef>
#include <cstdint>
#include <vector>

// What a program in C++ would do, for Python to call and to compare itself with.
extern "C" {

__attribute__((visibility("default"))) void* new_curve(const double* times, const double* values,
                                                       size_t count) {
  std::vector<qv::anim::Key> keys(count);
  for (size_t i = 0; i < count; ++i) keys[i] = {times[i], values[i], qv::anim::key_smooth};
  return new qv::anim::Curve(keys, false);
}

// Fills a vector with the values at `count` times and returns the last.
__attribute__((visibility("default"))) double curve_values(const void* curve, const double* times,
                                                           size_t count) {
  const auto& it = *static_cast<const qv::anim::Curve*>(curve);
  std::vector<double> values(count);
  for (size_t i = 0; i < count; ++i) values[i] = it.value(times[i]);
  return values.back();
}
}
