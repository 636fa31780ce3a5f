#include <qv/xform/crop.h>
#include <qv/xform/matrix.h>
#include <qv/xform/motion_blur.h>
#include <qv/xform/steps.h>

#include "host/base/linear_algebra.h"
#include "python/bindings/arrays.h"
#include "python/bindings/core.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <pybind11/stl.h>

namespace bindings {

namespace py = pybind11;
using namespace py::literals;

namespace {

namespace xform = qv::xform;

using Box = std::tuple<int64_t, int64_t, int64_t, int64_t>;
using Rectangle = std::tuple<double, double, double, double>;

Box box_out(const xform::Box& box) {
  return {box[0], box[1], box[2], box[3]};
}

xform::Box box_in(const Box& box) {
  return {std::get<0>(box), std::get<1>(box), std::get<2>(box), std::get<3>(box)};
}

xform::Matrix matrix_in(const ArrayLike& argument, const char* name) {
  const Packed<double> array = doubles(argument, name);
  if (array.ndim() != 2 || array.shape(0) != 3 || array.shape(1) != 3)
    throw py::value_error(std::string(name) + ": a matrix has shape (3, 3), not " + shape_text(array));
  xform::Matrix matrix{};
  std::copy_n(array.data(), matrix.size(), matrix.begin());
  return matrix;
}

Array<double> matrix_out(const xform::Matrix& matrix) {
  return {py::array_t<double>({3, 3}, matrix.data())};
}

std::optional<Array<double>> matrix_out(const std::optional<xform::Matrix>& matrix) {
  return matrix ? std::optional(matrix_out(*matrix)) : std::nullopt;
}

std::vector<double> step_in(const ArrayLike& argument, const std::string& name) {
  const Packed<double> array = doubles(argument, name.c_str());
  if (array.ndim() != 1)
    throw py::value_error(name + ": a step is one row of numbers, not shape " + shape_text(array));
  return {array.data(), array.data() + array.size()};
}

std::tuple<std::optional<Array<double>>, int64_t, int64_t, bool> step_matrix(const ArrayLike& values,
                                                                             int64_t width, int64_t height) {
  bool clip = false;
  const std::optional<xform::Matrix> matrix =
      xform::step_matrix(step_in(values, "values"), width, height, clip);
  return {matrix_out(matrix), width, height, clip};
}

xform::Total total(const std::vector<ArrayLike>& steps, int64_t width, int64_t height) {
  std::vector<std::vector<double>> chain;
  chain.reserve(steps.size());
  for (size_t i = 0; i < steps.size(); ++i)
    chain.push_back(step_in(steps[i], "steps[" + std::to_string(i) + "]"));
  return xform::total(chain, width, height);
}

xform::CropPlan crop_plan(const Rectangle& rectangle, const Box& bbox, int64_t width, int64_t height,
                          bool clip, bool reformat) {
  const auto [x0, y0, x1, y1] = rectangle;
  return xform::crop_plan(x0, y0, x1, y1, clip, box_in(bbox), reformat, width, height);
}

int64_t mblur_samples(double quality, const std::vector<std::optional<ArrayLike>>& path, int64_t width,
                      int64_t height) {
  std::vector<std::optional<xform::Matrix>> matrices;
  matrices.reserve(path.size());
  for (const auto& each : path)
    matrices.push_back(each ? std::optional(matrix_in(*each, "path")) : std::nullopt);
  return xform::mblur_samples(quality, matrices, width, height);
}

void add_matrices(py::module_& core) {
  core.def(
      "product",
      [](const ArrayLike& a, const ArrayLike& b) {
        return matrix_out(xform::product(matrix_in(a, "a"), matrix_in(b, "b")));
      },
      "a"_a, "b"_a, "a times b, both of shape (3, 3): b is applied first.");
  core.def(
      "inverse", [](const ArrayLike& m) { return matrix_out(xform::inverse(matrix_in(m, "m"))); }, "m"_a,
      "The inverse of a matrix of shape (3, 3), or None where there is none.");
  core.def(
      "h_bbox",
      [](const Box& box, const ArrayLike& m, int64_t pad) -> std::optional<Box> {
        const auto result = xform::h_bbox(box_in(box), matrix_in(m, "m"), pad);
        return result ? std::optional(box_out(*result)) : std::nullopt;
      },
      "box"_a, "m"_a, "pad"_a = 0, R"(The smallest pixel box around the image of `box` under `m`.

Boxes are (x0, y0, x1, y1), x1 and y1 beyond the last pixel. The result is grown by `pad` pixels; None
where a corner lies on or behind the horizon. ValueError: the image is no number. OverflowError: pixels
of 9.2e18 and beyond.

>>> from quorvel import core
>>> core.h_bbox((0, 0, 10, 10), [[2, 0, 5], [0, 1, 0], [0, 0, 1]])
(5, 0, 25, 10))");
}

void add_steps(py::module_& core) {
  core.attr("step_transform") = static_cast<int>(xform::step_transform);
  core.attr("step_reformat") = static_cast<int>(xform::step_reformat);
  core.attr("step_corner_pin") = static_cast<int>(xform::step_corner_pin);
  core.attr("skew_xy") = static_cast<int>(xform::skew_xy);
  core.attr("skew_yx") = static_cast<int>(xform::skew_yx);
  core.attr("reformat_to_format") = static_cast<int>(xform::reformat_to_format);
  core.attr("reformat_to_box") = static_cast<int>(xform::reformat_to_box);
  core.attr("reformat_by_scale") = static_cast<int>(xform::reformat_by_scale);
  core.attr("resize_none") = static_cast<int>(xform::resize_none);
  core.attr("resize_width") = static_cast<int>(xform::resize_width);
  core.attr("resize_height") = static_cast<int>(xform::resize_height);
  core.attr("resize_fit") = static_cast<int>(xform::resize_fit);
  core.attr("resize_fill") = static_cast<int>(xform::resize_fill);
  core.attr("resize_distort") = static_cast<int>(xform::resize_distort);

  core.def(
      "step_matrix", &step_matrix, "values"_a, "width"_a, "height"_a,
      R"(The matrix of one step, the width and height of the format that leaves, and whether it clips to that.

A step is a row of numbers that begins with its kind:
step_transform and 11 more: translate x, y; rotation in degrees; scale x, y; skew x, y; skew order;
  centre x, y; invert
step_reformat and 16 more: type; format width, height, pixel aspect; box width, height, whether its
  height counts, pixel aspect; scale x, y; resize; centre; mirror vertically, horizontally; turn by a
  quarter; keep what lies outside
step_corner_pin, invert, the number n of points, n points x, y as they are, n as they shall be, a 4x4
  matrix row by row

None for the matrix of an inverted step without an inverse and of points that determine no map. IndexError:
an empty step. ValueError: a step of another length or kind, a size that is no number. OverflowError: a
size of 9.2e18 and beyond.)");

  py::class_<xform::Total>(core, "Total", R"(What a chain of steps amounts to.

`matrix` has shape (3, 3), None where a step has none; `width` and `height` are the format that leaves;
`clip` is the box where the image ends, once a step clipped it.)")
      .def_property_readonly("matrix", [](const xform::Total& it) { return matrix_out(it.matrix); })
      .def_readonly("width", &xform::Total::width)
      .def_readonly("height", &xform::Total::height)
      .def_property_readonly("clip", [](const xform::Total& it) {
        return it.clip ? std::optional(box_out(*it.clip)) : std::nullopt;
      });
  core.def("total", &total, "steps"_a, "width"_a, "height"_a,
           R"(Folds steps, the first applied first, for an image of the given format. Raises as step_matrix.

>>> from quorvel import core
>>> move = [core.step_transform, 10, 20, 0, 1, 1, 0, 0, 0, 0, 0, 0]
>>> core.total([move, move], 64, 64).matrix
array([[ 1.,  0., 20.],
       [ 0.,  1., 40.],
       [ 0.,  0.,  1.]]))");
}

void add_planners(py::module_& core) {
  using xform::CropPlan;
  py::class_<CropPlan>(core, "CropPlan", R"(What a crop node's program and its output image need.

Boxes are (x0, y0, x1, y1), y up: `box` the rectangle, clamped and never inverted; `pixels` those under it;
`window` the output's data window. `local` is `box` from the top left of `pixels`, y down; `format` the
output's width and height.)")
      .def_property_readonly(
          "box", [](const CropPlan& it) { return Rectangle(it.box[0], it.box[1], it.box[2], it.box[3]); })
      .def_property_readonly("pixels", [](const CropPlan& it) { return box_out(it.pixels); })
      .def_property_readonly(
          "local",
          [](const CropPlan& it) { return Rectangle(it.local[0], it.local[1], it.local[2], it.local[3]); })
      .def_property_readonly("format",
                             [](const CropPlan& it) { return std::tuple(it.format[0], it.format[1]); })
      .def_property_readonly("window", [](const CropPlan& it) { return box_out(it.window); });
  core.def("crop_plan", &crop_plan, "rectangle"_a, "bbox"_a, "width"_a, "height"_a, "clip"_a = false,
           "reformat"_a = false, R"(Plans the crop of an image to a rectangle (x0, y0, x1, y1).

`bbox` is the image's window, `width` and `height` its format. `clip` holds the rectangle inside `bbox`
first; `reformat` makes the rectangle the format and its corner the origin. ValueError: an edge that is no
number. OverflowError: an edge or size of 9.2e18 and beyond.

>>> from quorvel import core
>>> core.crop_plan((1.5, 0, 8, 8), (0, 0, 64, 64), 64, 64, reformat=True).format
(6, 8))");
  core.def("mblur_samples", &mblur_samples, "quality"_a, "path"_a, "width"_a, "height"_a,
           R"(How many motion-blur samples a moving transform needs, at most 128; 0 for none.

`path` has its matrix, of shape (3, 3), at each time of the shutter, None where there is none. `quality`
samples a pixel of the longest way of a corner of the format, and one more. ValueError, OverflowError: a
way that is no number or has no end.)");
}

}  // namespace

void add_xform(py::module_& core) {
  host::install_linear_algebra();
  add_matrices(core);
  add_steps(core);
  add_planners(core);
}

}  // namespace bindings
