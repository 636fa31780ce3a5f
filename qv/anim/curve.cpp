#include <qv/anim/curve.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>
#include <utility>

namespace qv::anim {

namespace {

// Stands in for a time step of 0 wherever slopes divide by one.
constexpr double least_step = 1e-9;

// Enough that most slots hold no key or one, and a look at the slot replaces the search.
constexpr size_t slots_per_key = 4;

double step_between(const std::vector<double>& x, size_t from, size_t to) {
  const double step = x[to] - x[from];
  return step == 0 ? least_step : step;
}

double secant(const std::vector<double>& x, const std::vector<double>& y, size_t from, size_t to) {
  return (y[to] - y[from]) / step_between(x, from, to);
}

double pivot(double diagonal) {
  if (diagonal == 0) {
    throw NotCompilable("ZeroDivisionError");
  }
  return diagonal;
}

// Second derivatives at the keys of the natural cubic spline with steps h, 0 at both ends: a
// tridiagonal system, solved by the Thomas algorithm. The order of operations is part of the result.
std::vector<double> second_derivatives(const std::vector<double>& y, const std::vector<double>& h) {
  const size_t n = y.size();
  std::vector<double> below(n, 0.0);
  std::vector<double> diagonal(n, 1.0);
  std::vector<double> above(n, 0.0);
  std::vector<double> m(n, 0.0);

  // Fill the inner rows; the first and last say only that their second derivative is 0.
  for (size_t i = 1; i + 1 < n; ++i) {
    below[i] = h[i - 1];
    diagonal[i] = 2 * (h[i - 1] + h[i]);
    above[i] = h[i];
    m[i] = 6 * ((y[i + 1] - y[i]) / h[i] - (y[i] - y[i - 1]) / h[i - 1]);
  }
  // Eliminate below the diagonal.
  for (size_t i = 1; i < n; ++i) {
    const double w = below[i] / pivot(diagonal[i - 1]);
    diagonal[i] -= w * above[i - 1];
    m[i] -= w * m[i - 1];
  }
  // Substitute back, from the right sides into the second derivatives.
  m[n - 1] = m[n - 1] / pivot(diagonal[n - 1]);
  for (size_t i = n - 1; i-- > 0;) {
    m[i] = (m[i] - above[i] * m[i + 1]) / pivot(diagonal[i]);
  }
  return m;
}

std::vector<double> spline_slopes(const std::vector<double>& x, const std::vector<double>& y) {
  const size_t n = x.size();
  if (n < 3) {
    // Two keys at one time: not least_step here, so that the slope stays of the values' size.
    const double span = x[n - 1] - x[0];
    return std::vector<double>(n, (y[n - 1] - y[0]) / (span == 0 ? 1.0 : span));
  }
  std::vector<double> h(n - 1);
  for (size_t i = 0; i + 1 < n; ++i) {
    h[i] = step_between(x, i, i + 1);
  }
  const std::vector<double> m = second_derivatives(y, h);
  std::vector<double> s(n);
  for (size_t i = 0; i + 1 < n; ++i) {
    s[i] = (y[i + 1] - y[i]) / h[i] - (2 * m[i] + m[i + 1]) * h[i] / 6;
  }
  s[n - 1] = (y[n - 1] - y[n - 2]) / h[n - 2] + (2 * m[n - 1] + m[n - 2]) * h[n - 2] / 6;
  return s;
}

// The slope between a key's neighbours, or towards its only one.
double central_slope(const std::vector<double>& x, const std::vector<double>& y, size_t i) {
  const size_t last = x.size() - 1;
  return secant(x, y, i > 0 ? i - 1 : 0, i < last ? i + 1 : last);
}

bool is_extremum(const std::vector<double>& y, size_t i) {
  return i > 0 && i + 1 < y.size() && (y[i + 1] - y[i]) * (y[i] - y[i - 1]) <= 0;
}

// `in` and `out` are zeros, one a key; two keys at least.
void fill_slopes(const std::vector<Key>& keys, std::vector<double>& in, std::vector<double>& out) {
  const size_t n = keys.size();
  std::vector<double> x(n);
  std::vector<double> y(n);
  for (size_t i = 0; i < n; ++i) {
    x[i] = keys[i].time;
    y[i] = keys[i].value;
  }
  std::optional<std::vector<double>> spline;  // solved for the first key that asks, for all of them

  for (size_t i = 0; i < n; ++i) {
    const Key& key = keys[i];
    switch (key.kind) {
      case key_step:
      case key_flat:
        break;
      case key_linear:
        in[i] = i > 0 ? secant(x, y, i - 1, i) : secant(x, y, 0, 1);
        out[i] = i + 1 < n ? secant(x, y, i, i + 1) : secant(x, y, n - 2, n - 1);
        break;
      case key_smooth:
        in[i] = out[i] = is_extremum(y, i) ? 0.0 : central_slope(x, y, i);
        break;
      case key_spline:
        if (!spline) {
          spline = spline_slopes(x, y);
        }
        in[i] = out[i] = (*spline)[i];
        break;
      case key_slopes:
        in[i] = key.has_in ? key.in_slope : central_slope(x, y, i);
        out[i] = key.has_out ? key.out_slope : in[i];
        break;
      default:
        in[i] = out[i] = central_slope(x, y, i);
    }
  }
}

}  // namespace

NotCompilable::NotCompilable(const std::string& message) : std::runtime_error(message) {}

NotCompilable::~NotCompilable() = default;

void slopes(const std::vector<Key>& keys, std::vector<double>& in, std::vector<double>& out) {
  std::vector<double> in_slopes(keys.size(), 0.0);
  std::vector<double> out_slopes(keys.size(), 0.0);
  if (keys.size() > 1) {
    fill_slopes(keys, in_slopes, out_slopes);
  }
  in = std::move(in_slopes);
  out = std::move(out_slopes);
}

Curve::Curve(std::vector<Key> keys, bool extrapolate) : keys_(std::move(keys)), extrapolate_(extrapolate) {
  times_.reserve(keys_.size());
  for (const Key& key : keys_) {
    if (!times_.empty() && key.time - times_.back() == 0) {
      throw NotCompilable("equal key times");
    }
    times_.push_back(key.time);
  }
  slopes(keys_, in_slopes_, out_slopes_);
  index_times();
}

// Divides the time between the ends into equal slots and notes the segments that each can lie in. A
// slot number never falls as times rise, rounding included, so keys of lower slots lie before every
// time of a slot, and keys of higher ones after: with ascending keys, searching what is noted finds
// what searching everything finds. Otherwise there is one slot, with every segment.
void Curve::index_times() {
  const size_t n = times_.size();
  if (n < 2) {
    return;
  }
  bool ascending = true;
  for (size_t i = 1; i < n; ++i) {
    ascending = ascending && times_[i - 1] < times_[i];
  }
  const size_t slots = ascending ? slots_per_key * n : 1;
  const double per_time = static_cast<double>(slots) / (times_.back() - times_.front());
  slots_per_time_ = std::isfinite(per_time) ? per_time : 0;
  last_slot_ = static_cast<double>(slots - 1);
  first_segments_.assign(slots + 1, n - 2);
  size_t below = 0;
  for (size_t slot = 0; slot < slots; ++slot) {
    while (below < n && slot_of(times_[below]) < slot) {
      ++below;
    }
    first_segments_[slot] = below > 0 ? std::min(below - 1, n - 2) : 0;
  }
}

// The slot of a time, 0 for NaN: std::max and std::min keep their first argument then.
size_t Curve::slot_of(double t) const {
  const double place = (t - times_.front()) * slots_per_time_;
  return static_cast<size_t>(std::min(std::max(0.0, place), last_slot_));
}

double Curve::beyond_ends(double t) const {
  if (keys_.empty()) {
    return 0.0;
  }
  const bool before = t <= times_.front();
  const Key& end = before ? keys_.front() : keys_.back();
  if (!extrapolate_ || keys_.size() < 2) {
    return end.value;
  }
  return end.value + (t - end.time) * (before ? in_slopes_.front() : out_slopes_.back());
}

double Curve::value(double t) const {
  const size_t n = times_.size();
  if (n < 2 || t <= times_.front() || t >= times_.back()) {
    return beyond_ends(t);
  }
  // Always compare the middle: where keys are out of order or NaN, which times are compared decides.
  const size_t slot = slot_of(t);
  size_t lo = first_segments_[slot];
  size_t end = first_segments_[slot + 1] + 1;
  while (end - lo > 1) {
    const size_t mid = (lo + end) / 2;
    (t >= times_[mid] ? lo : end) = mid;
  }
  const Key& from = keys_[lo];
  if (from.kind == key_step) {
    return from.value;
  }
  const size_t hi = lo + 1;
  const double d = times_[hi] - times_[lo];
  const double u = (t - times_[lo]) / d;
  const double u2 = u * u;
  const double u3 = u2 * u;
  return (2 * u3 - 3 * u2 + 1) * from.value + (u3 - 2 * u2 + u) * d * out_slopes_[lo] +
         (3 * u2 - 2 * u3) * keys_[hi].value + (u3 - u2) * d * in_slopes_[hi];
}

}  // namespace qv::anim
