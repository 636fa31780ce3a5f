#pragma once

#include <qv/export.h>
#include <qv/nodes/filter/plan.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// The filters by name: each turns images and a flat list of numbers into a plan and runs it.
//
//   name            parameters (a box is x0 y0 x1 y1, the image's window in pixels)
//   "blur"          size x, size y, kernel, limit, box
//   "glow"          as blur, then tolerance, tint r g b, brightness, saturation, effect only
//   "sharpen"       as blur, then amount, least, most
//   "dilate"        amount
//   "filter_erode"  amount, kernel
//   "erode"         amount, soft size, limit, box
//   "edgeblur"      as blur, then matte channel, edge multiplier, tint r g b, brightness; 2 inputs
//   "disc"          radius x, radius y, direct; a second input is taken as the table of row sums
//
// operations() is the same table as data. Sizes, amounts and radii in pixels. A blur larger than its
// limit (where that is 1 or more) is computed on a smaller image. Flags are set when they are not 0.
// Parameters are not range-checked: what does nothing draws nothing, integers are truncated towards 0
// with NaN as 0 and the rest held to their range.
namespace qv::nodes::filter {

// The kernels of a blur of size s, in pixels. Any other number is kernel_gaussian.
enum Kernel : int {
  kernel_box = 0,        // of width s
  kernel_triangle = 1,   // of half width s
  kernel_quadratic = 2,  // a B-spline of half width 1.5 s
  kernel_gaussian = 3,   // sigma s / 2, cut at 1.5 s
};

// One filter.
struct Operation {
  std::string_view name;
  std::span<const std::string_view> params;  // in the order in which run_op takes them: "size_x", ...
  size_t inputs = 1;                         // images that it needs
};

// Every filter. Lives as long as the library. Thread-safe.
QV_API std::span<const Operation> operations();

// Runs a filter: inputs[0] is the image, `out` receives the result and has its size. Returns the
// RunResult of Plan::run, and run_bad for a name that is none of the above, no input, or too few
// parameters or inputs; more are ignored.
// GL thread only. The programs that op_frags names are registered beforehand.
QV_API int run_op(std::string_view op, std::span<const Tex> inputs, std::span<const double> params,
                  const Tex& out, uint32_t restore);

// The fragment files that a filter draws with, in the order of their use; none for an unknown name.
// Thread-safe.
QV_API std::vector<std::string> op_frags(std::string_view op);

// Kernel radius in whole pixels, 0 to 4096, for a blur of `size` pixels by kernel: half the
// width beyond the middle pixel (box), the half width (triangle), 1.5 times the size (others).
// Thread-safe.
QV_API int radius(double size, int filter);

// By how much a blur of `size` pixels shrinks its image so that at most `limit` are left; 1, not
// at all, when it is small enough or limit < 1. Thread-safe.
QV_API int factor(double size, int limit);

// Scale and offset of the ramp clamp(scale * x + offset, 0, 1) that turns a triangle blur of size
// 2 |amount| of a hard edge into an edge |amount| pixels away, one pixel wide. Thread-safe.
QV_API void erode_ramp(double amount, double* scale, double* offset);

}  // namespace qv::nodes::filter
