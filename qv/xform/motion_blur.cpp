#include <qv/xform/integers.h>
#include <qv/xform/motion_blur.h>
#include <qv/xform/routines.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace qv::xform {

namespace {

struct Point {
  double x;
  double y;
};

// How far (x, y) travels along the path, in pixels.
double travel(const std::vector<std::optional<Matrix>>& path, double x, double y) {
  double way = 0;
  std::optional<Point> previous;
  for (const std::optional<Matrix>& m : path) {
    if (!m) {
      continue;
    }
    const auto [px, py, w] = apply(*m, x, y);
    if (!(std::abs(w) > 1e-9)) {
      continue;
    }
    const Point point{px / w, py / w};
    if (previous) {
      way += std::hypot(point.x - previous->x, point.y - previous->y);
    }
    previous = point;
  }
  return way;
}

}  // namespace

int64_t mblur_samples(double quality, const std::vector<std::optional<Matrix>>& path, int64_t width,
                      int64_t height) {
  const auto w = static_cast<double>(width);
  const auto h = static_cast<double>(height);
  double longest = 0;
  for (const Point corner : {Point{0, 0}, Point{w, 0}, Point{0, h}, Point{w, h}}) {
    const double way = travel(path, corner.x, corner.y);
    // A way that is no number is kept, to be reported.
    longest = way > longest || std::isnan(way) ? way : longest;
  }
  if (longest < 0.0001) {
    return 0;
  }
  const int64_t samples = checked_integer(std::ceil(longest * quality - 1e-9)) + 1;
  return std::min<int64_t>(samples, 128);
}

}  // namespace qv::xform
