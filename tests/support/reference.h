#pragma once

#include "tests/support/picture.h"

#include <algorithm>
#include <cmath>
#include <functional>

// The filters as their formulas say, in doubles and with no thought for speed.
namespace reference {

using support::Picture;

// Weight of the pixel k away in the kernel `filter` of size s.
inline double weight(int filter, double s, double k) {
  const double t = std::abs(k) / s;
  if (filter == 0) return std::clamp(s / 2 + 0.5 - std::abs(k), 0.0, 1.0);
  if (filter == 1) return std::max(0.0, 1 - t);
  if (filter == 2) return t < 0.5 ? 0.75 - t * t : t < 1.5 ? (1.5 - t) * (1.5 - t) / 2 : 0;
  return t <= 1.5 + 1e-9 ? std::exp(-2 * t * t) : 0;
}

// For each value, what `over` makes of its line along an axis: over(f, reach) with f(k) the value k
// pixels away.
inline Picture each_line(const Picture& in, bool vertical,
                         const std::function<double(const std::function<double(int)>&)>& over) {
  Picture out(in.w, in.h);
  for (int y = 0; y < in.h; ++y)
    for (int x = 0; x < in.w; ++x)
      for (int c = 0; c < 4; ++c)
        out.at(x, y, c) = static_cast<float>(
            over([&](int k) { return double(vertical ? in.held(x, y + k, c) : in.held(x + k, y, c)); }));
  return out;
}

inline Picture blur(const Picture& in, double sx, double sy, int filter) {
  const auto axis = [filter](const Picture& from, double s, bool vertical) {
    const int r = s > 0 ? static_cast<int>(std::min(4096.0, std::ceil(2 * s))) : 0;
    return each_line(from, vertical, [=](const auto& f) {
      double sum = 0, weights = 0;
      for (int k = -r; k <= r; ++k) {
        const double w = r == 0 ? 1 : weight(filter, s, k);
        if (w == 0) continue;
        sum += w * f(k);
        weights += w;
      }
      return sum / weights;
    });
  };
  return axis(axis(in, sy, true), sx, false);
}

inline Picture dilate(const Picture& in, double amount) {
  const int n = static_cast<int>(std::abs(amount));
  const auto extremum = [amount](const auto& f, int reach) {
    double result = f(0);
    for (int k = -reach; k <= reach; ++k)
      result = amount > 0 ? std::max(result, f(k)) : std::min(result, f(k));
    return result;
  };
  const auto line = [&](const auto& f) {
    const double inner = extremum(f, n);
    return inner + (std::abs(amount) - n) * (extremum(f, n + 1) - inner);
  };
  return each_line(each_line(in, false, line), true, line);
}

inline Picture filter_erode(const Picture& in, double amount, int filter) {
  const double s = 2 * std::abs(amount) + 1;
  const int r = static_cast<int>(std::ceil(2 * s));
  const bool grow = amount > 0;
  const auto line = [=](const auto& f) {
    double result = grow ? f(0) : 1 - f(0);
    for (int k = -r; k <= r; ++k) {
      const double w = weight(filter, s, k) / weight(filter, s, 0);
      if (w > 0) result = std::max(result, w * (grow ? f(k) : 1 - f(k)));
    }
    return grow ? result : 1 - result;
  };
  return each_line(each_line(in, false, line), true, line);
}

inline Picture disc(const Picture& in, double rx, double ry) {
  rx = std::max(rx, 0.5);
  ry = std::max(ry, 0.5);
  Picture out(in.w, in.h);
  for (int y = 0; y < in.h; ++y)
    for (int x = 0; x < in.w; ++x)
      for (int c = 0; c < 4; ++c) {
        double sum = 0, weights = 0;
        for (int dy = static_cast<int>(-std::floor(ry)); dy <= ry; ++dy) {
          const double h = rx * std::sqrt(std::max(0.0, 1 - dy * dy / (ry * ry)));
          for (int dx = static_cast<int>(-std::ceil(h)); dx <= std::ceil(h); ++dx) {
            const double w = std::max(0.0, std::min(dx + 0.5, h) - std::max(dx - 0.5, -h));
            const double value = in.held(x + dx, y + dy, c);
            sum += std::isfinite(value) ? w * value : 0;
            weights += w;
          }
        }
        out.at(x, y, c) = static_cast<float>(sum / weights);
      }
  return out;
}

// Calls `shade` for every pixel of the first picture with the pixel of the others and `out`'s.
template <class Shade>
Picture each_pixel(const Picture& a, const Picture& b, Shade shade) {
  Picture out(a.w, a.h);
  for (size_t i = 0; i < a.rgba.size(); i += 4)
    shade(&a.rgba[i], &b.rgba[i], &out.rgba[i], int(i) / 4 % a.w, int(i) / 4 / a.w);
  return out;
}

}  // namespace reference
