#include <qv/xform/crop.h>
#include <qv/xform/integers.h>

#include <algorithm>
#include <cmath>

namespace qv::xform {

namespace {

// The first pixel whose centre is not below `edge`.
int64_t first_pixel(double edge) {
  return checked_integer(std::ceil(edge - 0.5));
}

}  // namespace

CropPlan crop_plan(double x0, double y0, double x1, double y1, bool clip, const Box& bbox, bool reformat,
                   int64_t width, int64_t height) {
  if (clip) {
    // The box first, which std::max and std::min keep when the other is NaN.
    x0 = std::max(static_cast<double>(bbox[0]), x0);
    y0 = std::max(static_cast<double>(bbox[1]), y0);
    x1 = std::min(static_cast<double>(bbox[2]), x1);
    y1 = std::min(static_cast<double>(bbox[3]), y1);
  }
  x1 = std::max(x0, x1);
  y1 = std::max(y0, y1);

  CropPlan plan;
  plan.box = {x0, y0, x1, y1};
  const int64_t px0 = first_pixel(x0);
  const int64_t py0 = first_pixel(y0);
  const int64_t px1 = std::max(first_pixel(x1), px0 + 1);
  const int64_t py1 = std::max(first_pixel(y1), py0 + 1);
  const auto left = static_cast<double>(px0);
  const auto top = static_cast<double>(py1);
  plan.pixels = {px0, py0, px1, py1};
  plan.local = {x0 - left, top - y1, x1 - left, top - y0};
  if (!reformat) {
    plan.format = {width, height};
    plan.window = plan.pixels;
    return plan;
  }
  // The sizes first: where they are in range, so are the differences below.
  const int64_t one = 1;
  plan.format = {std::max(one, checked_round(x1 - x0)), std::max(one, checked_round(y1 - y0))};
  const int64_t rx = checked_round(x0);
  const int64_t ry = checked_round(y0);
  plan.window = {px0 - rx, py0 - ry, px1 - rx, py1 - ry};
  return plan;
}

}  // namespace qv::xform
