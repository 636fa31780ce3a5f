#include <qv/nodes/color/pack.h>
#include <qv/nodes/filter/ops.h>
#include <qv/nodes/keyer/keyer.h>
#include <qv/nodes/ocio/splice.h>

#include "python/bindings/arrays.h"
#include "python/bindings/core.h"

#include <array>
#include <cstdint>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <pybind11/stl.h>

namespace bindings {

namespace py = pybind11;
using namespace py::literals;

namespace {

namespace color = qv::nodes::color;
namespace filter = qv::nodes::filter;
namespace keyer = qv::nodes::keyer;
namespace ocio = qv::nodes::ocio;

color::Spec spec(std::vector<color::Knob> knobs, std::vector<color::Uniform> uniforms) {
  color::Spec made{std::move(knobs), std::move(uniforms)};
  std::string error;
  if (!made.finish(&error)) throw py::value_error(error);
  return made;
}

// One row of floats, as many as are needed or, with `more`, more.
Packed<float> row(const ArrayLike& argument, const char* name, int32_t needed, bool more) {
  Packed<float> array = floats(argument, name);
  if (array.ndim() == 1 && (array.size() == needed || (more && array.size() > needed))) return array;
  throw py::value_error(std::string(name) + ": " + std::to_string(needed) +
                        " numbers are needed, not shape " + shape_text(array));
}

std::vector<Array<float>> pack(const color::Spec& spec, const ArrayLike& knobs, const ArrayLike& inputs) {
  const Packed<float> knob_floats = row(knobs, "knobs", spec.knob_floats, false);
  const Packed<float> input_floats = row(inputs, "inputs", spec.input_count, true);
  std::vector<color::Packed> packed(spec.uniforms.size());
  color::pack(spec, knob_floats.data(), input_floats.data(), packed.data());
  std::vector<Array<float>> result;
  result.reserve(packed.size());
  for (const color::Packed& each : packed)
    result.push_back({py::array_t<float>(each.count, each.values.data())});
  return result;
}

void add_color(py::module_& core) {
  py::module_ m = core.def_submodule(
      "color", "What the program of a colour node is told: knobs and inputs, packed into uniforms.");
  using color::Knob;
  using color::Source;
  using color::Uniform;
  m.attr("source_knob") = static_cast<int>(color::SourceKind::knob);
  m.attr("source_input") = static_cast<int>(color::SourceKind::input);
  m.attr("source_constant") = static_cast<int>(color::SourceKind::constant);
  m.attr("source_knob_switch") = static_cast<int>(color::SourceKind::knob_switch);

  py::class_<Knob>(m, "Knob",
                   "A parameter that the user sets, with as many components as it has defaults, 1 to 16.")
      .def(py::init([](std::string name, std::vector<float> defaults) {
             const auto length = static_cast<int32_t>(defaults.size());
             return Knob{std::move(name), length, std::move(defaults)};
           }),
           "name"_a, "defaults"_a)
      .def_readonly("name", &Knob::name)
      .def_readonly("length", &Knob::length)
      .def_readonly("defaults", &Knob::defaults);
  py::class_<Source>(m, "Source", R"(What a component of a uniform is made of, by its kind.

source_knob: component `component` of knob `index`; source_input: the host's input number `index`;
source_constant: `value`; source_knob_switch: the first component of knob `component` while that of knob
`index` is not 0, else 0. Any other kind gives 0.)")
      .def(py::init([](uint8_t kind, int32_t index, int32_t component, float value) {
             return Source{static_cast<color::SourceKind>(kind), index, component, value};
           }),
           "kind"_a, "index"_a = 0, "component"_a = 0, "value"_a = 0.0F)
      .def_property_readonly("kind", [](const Source& it) { return static_cast<int>(it.kind); })
      .def_readonly("index", &Source::index)
      .def_readonly("component", &Source::component)
      .def_readonly("value", &Source::value);
  py::class_<Uniform>(m, "Uniform", "A uniform of a colour node's program, one source a component.")
      .def(py::init([](std::string name, std::vector<Source> sources) {
             return Uniform{std::move(name), std::move(sources)};
           }),
           "name"_a, "sources"_a)
      .def_readonly("name", &Uniform::name)
      .def_readonly("sources", &Uniform::sources);
  py::class_<color::Spec>(m, "Spec",
                          R"(Which knobs a colour node has, and of what each uniform is made. Immutable.

`offsets` says where each knob's first component is among the `knob_floats` numbers of all knobs;
`input_count` is one more than the highest input number in use.)")
      .def(py::init(&spec), "knobs"_a, "uniforms"_a, "ValueError: names the knob or uniform at fault.")
      .def_readonly("knobs", &color::Spec::knobs)
      .def_readonly("uniforms", &color::Spec::uniforms)
      .def_readonly("offsets", &color::Spec::offsets)
      .def_readonly("knob_floats", &color::Spec::knob_floats)
      .def_readonly("input_count", &color::Spec::input_count);
  m.def("pack", &pack, "spec"_a, "knobs"_a, "inputs"_a = py::tuple(), R"(The uniforms' values, an array each.

`knobs` has spec.knob_floats numbers, `inputs` at least spec.input_count. ValueError: other sizes.

>>> from quorvel.core import color
>>> gain = color.Uniform("u_gain", [color.Source(color.source_knob, 0, c) for c in range(3)])
>>> color.pack(color.Spec([color.Knob("gain", [1, 1, 1])], [gain]), [2, 1, 0.5])
[array([2. , 1. , 0.5], dtype=float32)])");
}

Array<float> rgb_to_rgba(const ArrayLike& rgb) {
  const Packed<float> in = floats(rgb, "rgb");
  if (in.ndim() == 0 || in.shape(in.ndim() - 1) != 3)
    throw py::value_error("rgb: the last dimension is 3, not shape " + shape_text(in));
  std::vector<py::ssize_t> shape(in.shape(), in.shape() + in.ndim());
  shape.back() = 4;
  py::array_t<float> out(shape);
  const float* const from = in.data();
  float* const to = out.mutable_data();
  const auto pixels = static_cast<size_t>(in.size() / 3);
  {
    const py::gil_scoped_release unlocked;
    ocio::rgb_to_rgba(from, pixels, to);
  }
  return {std::move(out)};
}

void add_ocio(py::module_& core) {
  py::module_ m = core.def_submodule(
      "ocio", "The shader text and LUTs that OpenColorIO generates, for a program of one's own.");
  m.def("splice", &ocio::splice, "shader_template"_a, "generated"_a,
        "The template with the generated text in place of its line //@OCIO.");
  m.def(
      "patch_lut3d",
      [](std::string source, const std::string& sampler) {
        const bool patched = ocio::patch_lut3d(source, sampler);
        return std::pair(std::move(source), patched);
      },
      "source"_a, "sampler"_a,
      R"(Makes the lookups of one 3D LUT trilinear: the new text, and whether there was one.

Where there was, the program must define vec4 qv_lut3d_trilinear(sampler3D lut, vec3 coordinate).)");
  m.def("rgb_to_rgba", &rgb_to_rgba, "rgb"_a,
        R"(Widens pixels, shape (..., 3), to shape (..., 4) with alpha 1. float32.

The interpreter's lock is released. ValueError: another last dimension.)");
}

void add_keyer(py::module_& core) {
  py::module_ m = core.def_submodule("keyer", "The parameters of keyer programs. Nothing here fails.");
  using Four = std::tuple<double, double, double, double>;
  using Three = std::tuple<double, double, double>;
  m.def("fill_levels", &keyer::fill_levels, "size"_a, "width"_a, "height"_a,
        "How many levels, 1 to 10, an edge fill needs to double `size` pixels until it covers the image.");
  m.def(
      "keyer_range",
      [](const Four& range) {
        const auto [low0, high0, low1, high1] = range;
        const auto sorted = keyer::keyer_range({low0, high0, low1, high1});
        return Four(sorted[0], sorted[1], sorted[2], sorted[3]);
      },
      "range"_a,
      "Puts (low0, high0, low1, high1) in order: each low at most its high, the second range above the "
      "first.");
  m.def(
      "screen_channels",
      [](const Three& colour, double balance) {
        const auto [red, green, blue] = colour;
        std::array<double, 3> selector{}, weights{};
        keyer::screen_channels({red, green, blue}, balance, selector, weights);
        return std::pair(Three(selector[0], selector[1], selector[2]),
                         Three(weights[0], weights[1], weights[2]));
      },
      "colour"_a, "balance"_a = 0.5,
      R"(Which channel is the screen's own (1 of three), and the weights of the other two.

>>> from quorvel import core
>>> core.keyer.screen_channels((0.1, 0.8, 0.2))
((0.0, 1.0, 0.0), (0.5, 0.0, 0.5)))");
}

void add_filter(py::module_& core) {
  py::module_ m = core.def_submodule("filter", "The filters as data. Drawing them is the renderer's.");
  using filter::Operation;
  m.attr("kernel_box") = static_cast<int>(filter::kernel_box);
  m.attr("kernel_triangle") = static_cast<int>(filter::kernel_triangle);
  m.attr("kernel_quadratic") = static_cast<int>(filter::kernel_quadratic);
  m.attr("kernel_gaussian") = static_cast<int>(filter::kernel_gaussian);

  py::class_<Operation>(m, "Operation",
                        "A filter: its name, its parameters in their order, and how many images it needs.")
      .def_property_readonly("name", [](const Operation& it) { return std::string(it.name); })
      .def_property_readonly(
          "params",
          [](const Operation& it) { return std::vector<std::string>(it.params.begin(), it.params.end()); })
      .def_readonly("inputs", &Operation::inputs);
  m.def(
      "operations",
      [] { return std::vector<Operation>(filter::operations().begin(), filter::operations().end()); },
      R"(Every filter.

>>> from quorvel import core
>>> core.filter.operations()[0].params
['size_x', 'size_y', 'kernel', 'limit', 'x0', 'y0', 'x1', 'y1'])");
  m.def("op_frags", &filter::op_frags, "op"_a,
        "The fragment files that a filter draws with, in the order of their use; none for an unknown name.");
  m.def("radius", &filter::radius, "size"_a, "filter"_a,
        "Kernel radius, 0 to 4096, of a blur of `size` pixels by kernel.");
  m.def("factor", &filter::factor, "size"_a, "limit"_a,
        "By how much a blur of `size` pixels shrinks its image so that at most `limit` are left.");
  m.def(
      "erode_ramp",
      [](double amount) {
        double scale = 0, offset = 0;
        filter::erode_ramp(amount, &scale, &offset);
        return std::pair(scale, offset);
      },
      "amount"_a, "Scale and offset of the ramp that moves a blurred hard edge by `amount` pixels.");
}

}  // namespace

void add_nodes(py::module_& core) {
  add_color(core);
  add_filter(core);
  add_keyer(core);
  add_ocio(core);
}

}  // namespace bindings
