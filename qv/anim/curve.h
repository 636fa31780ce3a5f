#pragma once

#include <qv/export.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace qv::anim {

// How a curve arrives at a key and leaves it. The first and last key have one neighbour only; there
// linear, smooth and cubic point straight at it.
enum KeyKind : uint8_t {
  key_step = 0,    // flat, and the segment that starts here holds the value until the next key
  key_linear = 1,  // straight to either neighbour
  key_smooth = 2,  // slope between the neighbours, flat at a local extremum
  key_cubic = 3,   // Catmull-Rom: slope between the neighbours; so is every number above 6
  key_spline = 4,  // natural cubic spline through all keys of the curve
  key_flat = 5,    // flat, with a smooth segment on either side
  key_slopes = 6,  // `in_slope` and `out_slope`; without `has_in` cubic, without `has_out` as it arrives
};

// One keyframe. Times are in the host's unit (frames), slopes in value per time.
struct Key {
  double time = 0;
  double value = 0;
  uint8_t kind = key_step;  // a KeyKind
  bool has_in = false;      // key_slopes: `in_slope` is given
  bool has_out = false;     // key_slopes: `out_slope` is given
  double in_slope = 0;
  double out_slope = 0;
};

// Thrown where no curve can be made of the keys. The message is meant for the host to show or to map:
// "equal key times" (neighbours at one time) or "ZeroDivisionError" (the spline has no solution).
class QV_API NotCompilable : public std::runtime_error {
 public:
  explicit NotCompilable(const std::string& message);
  NotCompilable(const NotCompilable&) = default;
  NotCompilable& operator=(const NotCompilable&) = default;
  ~NotCompilable() override;
};

// One animated parameter as a function of time: cubic Hermite segments between keys, whose slopes are
// worked out once, when the curve is built. Build a new one when a key changes.
// Immutable once built, so thread-safe. Owns its keys: about 100 bytes each.
class QV_API Curve {
 public:
  // Takes the keys in ascending time. Throws NotCompilable. Order is not checked, only equality of
  // neighbours: keys out of order make a curve whose search means little but still ends. No keys
  // make a curve that is 0 everywhere.
  Curve(std::vector<Key> keys, bool extrapolate);

  // The curve at time `t`. At and beyond the first and last key their values, or with `extrapolate`
  // the straight lines that continue their slopes. Never fails; a NaN time gives NaN where the first
  // segment is not a step. Constant time with keys spread at all evenly, O(log keys) at worst; no allocation.
  double value(double t) const;

 private:
  void index_times();
  size_t slot_of(double t) const;
  double beyond_ends(double t) const;

  std::vector<Key> keys_;
  std::vector<double> in_slopes_;
  std::vector<double> out_slopes_;
  bool extrapolate_ = false;
  std::vector<double> times_;           // the keys' times side by side, which is what a search reads
  std::vector<size_t> first_segments_;  // the first segment that a time of each slot can lie in
  double slots_per_time_ = 0;
  double last_slot_ = 0;
};

// The slopes with which a curve through `keys` arrives at each key and leaves it; both vectors are
// replaced, one entry a key. A single key has slopes 0. Times that are equal count as 1e-9 apart.
// Throws NotCompilable("ZeroDivisionError") where key_spline is asked for and has no solution; it and
// std::bad_alloc leave both vectors as they were.
// Thread-safe. O(keys).
QV_API void slopes(const std::vector<Key>& keys, std::vector<double>& in, std::vector<double>& out);

}  // namespace qv::anim
