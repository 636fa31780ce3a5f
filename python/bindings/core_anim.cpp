#include <qv/anim/curve.h>
#include <qv/nodes/time/frames.h>

#include "python/bindings/arrays.h"
#include "python/bindings/core.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <pybind11/stl.h>

namespace bindings {

namespace py = pybind11;
using namespace py::literals;

namespace {

namespace anim = qv::anim;
namespace time = qv::nodes::time;

anim::Key key(double at, double value, int kind, std::optional<double> in, std::optional<double> out) {
  if (kind < 0 || kind > 255)
    throw py::value_error("kind: " + std::to_string(kind) + " is not within 0 to 255");
  return {at,
          value,
          static_cast<uint8_t>(kind),
          in.has_value(),
          out.has_value(),
          in.value_or(0),
          out.value_or(0)};
}

std::optional<double> in_slope(const anim::Key& key) {
  return key.has_in ? std::optional(key.in_slope) : std::nullopt;
}

std::optional<double> out_slope(const anim::Key& key) {
  return key.has_out ? std::optional(key.out_slope) : std::nullopt;
}

bool equal(const anim::Key& a, const anim::Key& b) {
  return a.time == b.time && a.value == b.value && a.kind == b.kind && in_slope(a) == in_slope(b) &&
         out_slope(a) == out_slope(b);
}

Array<double> values(const anim::Curve& curve, const Several& times) {
  const Packed<double> in = doubles(times, "t");
  py::array_t<double> out(std::vector<py::ssize_t>(in.shape(), in.shape() + in.ndim()));
  const double* const from = in.data();
  double* const to = out.mutable_data();
  const py::ssize_t count = in.size();
  const py::gil_scoped_release unlocked;
  for (py::ssize_t i = 0; i < count; ++i) to[i] = curve.value(from[i]);
  return {std::move(out)};
}

std::pair<Array<double>, Array<double>> slopes(const std::vector<anim::Key>& keys) {
  std::vector<double> in, out;
  anim::slopes(keys, in, out);
  const auto count = static_cast<py::ssize_t>(keys.size());
  return {owned(std::move(in), {count}), owned(std::move(out), {count})};
}

void add_key(py::module_& core) {
  core.attr("key_step") = static_cast<int>(anim::key_step);
  core.attr("key_linear") = static_cast<int>(anim::key_linear);
  core.attr("key_smooth") = static_cast<int>(anim::key_smooth);
  core.attr("key_cubic") = static_cast<int>(anim::key_cubic);
  core.attr("key_spline") = static_cast<int>(anim::key_spline);
  core.attr("key_flat") = static_cast<int>(anim::key_flat);
  core.attr("key_slopes") = static_cast<int>(anim::key_slopes);

  py::class_<anim::Key>(core, "Key", R"(One keyframe: a value at a time, and how a curve passes it.

Times are in frames, slopes in value per frame. `kind` is one of key_step (holds until the next key),
key_linear, key_smooth (flat at extrema), key_cubic, key_spline, key_flat and key_slopes, which takes
`in_slope` and `out_slope`. Immutable.)")
      .def(py::init(&key), "time"_a, "value"_a, "kind"_a = static_cast<int>(anim::key_step),
           "in_slope"_a = std::nullopt, "out_slope"_a = std::nullopt, "ValueError: a kind outside 0 to 255.")
      .def_readonly("time", &anim::Key::time)
      .def_readonly("value", &anim::Key::value)
      .def_readonly("kind", &anim::Key::kind)
      .def_property_readonly("in_slope", &in_slope)
      .def_property_readonly("out_slope", &out_slope)
      .def("__eq__", &equal, "other"_a, py::is_operator())
      .def("__hash__", [](const anim::Key& k) { return py::hash(py::make_tuple(k.time, k.value, k.kind)); })
      .def("__repr__", [](const anim::Key& k) {
        py::str text("Key({!r}, {!r}, {!r})");
        if (k.has_in || k.has_out) text = py::str("Key({!r}, {!r}, {!r}, {!r}, {!r})");
        return text.format(k.time, k.value, k.kind, in_slope(k), out_slope(k));
      });
}

void add_curve(py::module_& core) {
  py::register_exception<anim::NotCompilable>(core, "NotCompilable", PyExc_ValueError).attr("__doc__") =
      "No curve can be made of the keys: two at one time, or a spline without a solution.";

  py::class_<anim::Curve>(core, "Curve", R"(An animated parameter as a function of time.

Cubic segments between keys, whose slopes are worked out once. Immutable, so threads may share it.

>>> from quorvel import core
>>> curve = core.Curve([core.Key(1, 0.0, core.key_linear), core.Key(11, 5.0, core.key_linear)])
>>> curve.value(3)
1.0
>>> curve.value([[1, 2], [11, 99]])
array([[0. , 0.5],
       [5. , 5. ]]))")
      .def(py::init<std::vector<anim::Key>, bool>(), "keys"_a, "extrapolate"_a = false,
           R"(Takes keys in ascending time; none make a curve that is 0 everywhere.

`extrapolate` continues the slopes of the ends as straight lines instead of holding their values.
NotCompilable: neighbours at one time, or a spline that has no solution.)")
      .def(
          "value", [](const anim::Curve& curve, Number t) { return curve.value(t.value); }, "t"_a,
          "The value at a time in frames, as a number for a number.")
      .def(
          "value", &values, "t"_a,
          "The values at times of any shape, as an array of that shape. The interpreter's lock is released.");

  core.def("slopes", &slopes, "keys"_a, R"(The slopes with which a curve arrives at each key and leaves it.

Two arrays, one entry a key. NotCompilable: a spline that has no solution.)");
}

void add_retime(py::module_& m) {
  using time::RetimeRanges;
  py::class_<RetimeRanges>(m, "RetimeRanges", "Which stretch of the input plays over which of the output.")
      .def_readonly("in_first", &RetimeRanges::in_first)
      .def_readonly("in_last", &RetimeRanges::in_last)
      .def_readonly("out_first", &RetimeRanges::out_first)
      .def_readonly("out_last", &RetimeRanges::out_last)
      .def_readonly("speed", &RetimeRanges::speed, "Input frames an output frame.");
  using Set = std::optional<double>;
  m.def(
      "retime_ranges",
      [](double first, double last, Set in_first, Set in_last, Set out_first, Set out_last, double speed) {
        return time::retime_ranges(first, last, in_first.value_or(0), in_first.has_value(),
                                   in_last.value_or(0), in_last.has_value(), out_first.value_or(0),
                                   out_first.has_value(), out_last.value_or(0), out_last.has_value(), speed);
      },
      "input_first"_a, "input_last"_a, "in_first"_a = std::nullopt, "in_last"_a = std::nullopt,
      "out_first"_a = std::nullopt, "out_last"_a = std::nullopt, "speed"_a = 1.0,
      R"(Fills what a retime node leaves open (None).

The input range is the input's own. With both output ends set the speed follows from the lengths;
otherwise the output's length follows from `speed`.)");
  m.def("retime_pos", &time::retime_pos, "frame"_a, "ranges"_a, "before_mode"_a, "after_mode"_a,
        R"(The position in the input, in frames from ranges.in_first, for an output frame.

Outside the output range by the edge modes; None where they give no frame.)");
}

}  // namespace

void add_anim(py::module_& core) {
  add_key(core);
  add_curve(core);
}

void add_time(py::module_& core) {
  py::module_ m = core.def_submodule("time", R"(Which whole frames of its input a time node reads.

Frames are whole numbers, times and durations in frames. `nearest` rounds halves up; otherwise a time is
rounded down, but a hair below a whole number counts as that number.)");
  m.attr("edge_through") = static_cast<int>(time::edge_through);
  m.attr("edge_loop") = static_cast<int>(time::edge_loop);
  m.attr("edge_ping_pong") = static_cast<int>(time::edge_ping_pong);
  m.attr("edge_hold") = static_cast<int>(time::edge_hold);
  m.attr("edge_no_frame") = static_cast<int>(time::edge_no_frame);
  m.attr("shutter_centred") = static_cast<int>(time::shutter_centred);
  m.attr("shutter_from") = static_cast<int>(time::shutter_from);
  m.attr("shutter_until") = static_cast<int>(time::shutter_until);
  m.attr("shutter_custom") = static_cast<int>(time::shutter_custom);

  m.def("whole", &time::whole, "t"_a, "nearest"_a, "A time as a whole frame.");
  m.def("edge_frame", &time::edge_frame, "frame"_a, "first"_a, "last"_a, "mode"_a,
        R"(The frame read for `frame` of an input that has `first` to `last`, both included.

None where the mode is edge_no_frame and the frame lies outside.

>>> from quorvel import core
>>> [core.time.edge_frame(f, 1, 3, core.time.edge_ping_pong) for f in range(0, 7)]
[2, 1, 2, 3, 2, 1, 2])");
  m.def("timeoffset_frame", &time::timeoffset_frame, "t"_a, "offset"_a, "reverse"_a, "first"_a, "last"_a,
        "nearest"_a,
        "The frame of an input shifted later by `offset`, or mirrored in its range and then shifted.");
  m.def("framehold_frame", &time::framehold_frame, "t"_a, "hold_frame"_a, "every"_a, "nearest"_a,
        "`hold_frame`, or with `every` above 0 the last of hold_frame, hold_frame + every, ... up to `t`.");
  m.def("frameblend_frames", &time::frameblend_frames, "frame"_a, "count"_a, "use_range"_a, "range_start"_a,
        "range_end"_a, R"(The frames that a frame blend averages.

With `use_range` those from range_start to range_end, ascending, the first 256 at most; otherwise `count`
frames going back from `frame`. ValueError, MemoryError: more frames than memory holds.)");

  add_retime(m);
  m.def("box_weights", &time::box_weights, "t"_a, "width"_a,
        R"(The frames under a box of `width` frames centred on `t`, with weights that sum to 1.

>>> from quorvel import core
>>> core.time.box_weights(10, 2)
[(9, 0.25), (10, 0.5), (11, 0.25)])");
  m.def("shutter_weights", &time::shutter_weights, "t"_a, "samples"_a, "shutter"_a, "mode"_a,
        "custom_offset"_a = 0.0,
        R"(The frames nearest to `samples` times spread over an open shutter, with how many fell on each.

`mode` places the opening of `shutter` frames: shutter_centred, shutter_from, shutter_until or
shutter_custom (at t + custom_offset).)");
}

}  // namespace bindings
