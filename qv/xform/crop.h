#pragma once

#include <qv/export.h>
#include <qv/xform/matrix.h>

#include <array>
#include <cstdint>

namespace qv::xform {

// What a crop node's shader and its output image need. Boxes are (x0, y0, x1, y1), y up.
struct CropPlan {
  std::array<double, 4> box{};      // the rectangle, clamped and never inverted
  Box pixels{};                     // the pixels under it, at least one each way
  std::array<double, 4> local{};    // `box` from the top left of `pixels`, y down
  std::array<int64_t, 2> format{};  // the output's width, height
  Box window{};                     // the output's data window
};

// Plans the crop of an image to the rectangle (x0, y0, x1, y1), with `clip` held inside `bbox` first.
// A pixel belongs to `pixels` when its centre lies in the rectangle. Without `reformat` the output keeps
// the given format; with it the rectangle becomes the format and its corner the origin.
// An edge that is NaN: with `clip` it is that of `bbox`; otherwise x1 falls to x0 and y1 to y0, and x0
// or y0 throws std::invalid_argument. std::overflow_error for an edge, or a size, of 9.2e18 and beyond.
// Thread-safe; needs no installed routines.
QV_API CropPlan crop_plan(double x0, double y0, double x1, double y1, bool clip, const Box& bbox,
                          bool reformat, int64_t width, int64_t height);

}  // namespace qv::xform
