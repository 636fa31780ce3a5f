#include "python/bindings/composition.h"

#include "host/base/suggest.h"
#include "host/node/expectation.h"
#include "host/nodes/catalogue.h"
#include "host/programs/shader_library.h"
#include "host/shot/frames.h"
#include "host/shot/parse_knobs.h"
#include "host/shot/problems.h"
#include "python/bindings/bindings.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <pybind11/stl.h>

namespace bindings {
namespace {

namespace py = pybind11;
using namespace py::literals;
namespace node = host::node;
namespace shot = host::shot;
using Texts = std::vector<std::string>;
using Unlocked = py::call_guard<py::gil_scoped_release>;

CompiledComposition parse(const std::string& text, const std::string& file, const Texts& settings,
                          const Texts& nodes, const Texts& views) {
  return CompiledComposition(shot::parse_composition(text, file, {settings, nodes, views}));
}

CompiledComposition read(const std::string& file, const Texts& settings, const Texts& nodes,
                         const Texts& views) {
  return CompiledComposition(shot::read_composition(file, {settings, nodes, views}));
}

Texts outputs(const CompiledComposition& compiled) {
  Texts names;
  names.reserve((*compiled).outputs.size());
  for (const int at : (*compiled).outputs) names.push_back((*compiled).nodes[static_cast<size_t>(at)].name);
  return names;
}

// What is wrong with a text, a line each; "" when nothing is.
std::string problems(const std::string& text, const std::string& file) {
  try {
    shot::parse_composition(text, file);
    return "";
  } catch (const shot::CompositionError& error) {
    return error.what();
  }
}

py::dict knob_row(const node::KnobSpec& knob) {
  return py::dict("name"_a = knob.name, "kind"_a = node::kind_name(knob.kind), "help"_a = knob.help,
                  "expects"_a = node::expectation(knob), "defaults"_a = knob.defaults,
                  "default_text"_a = knob.default_text, "choices"_a = knob.choices,
                  "minimum"_a = knob.minimum, "maximum"_a = knob.maximum, "fewest"_a = knob.fewest,
                  "pixels"_a = knob.pixels);
}

py::dict type_row(const node::NodeType& type) {
  py::list inputs;
  for (const node::InputSpec& input : type.inputs) {
    inputs.append(py::dict("name"_a = input.name, "required"_a = input.required, "help"_a = input.help));
  }
  py::list knobs;
  for (const node::KnobSpec& knob : type.knobs) knobs.append(knob_row(knob));
  return py::dict("name"_a = type.name, "family"_a = type.family, "help"_a = type.help, "inputs"_a = inputs,
                  "knobs"_a = knobs, "takes_layers"_a = type.takes_layers,
                  "repeats_last_input"_a = type.repeats_last_input, "writes_files"_a = type.writes_files);
}

py::list catalogue() {
  py::list rows;
  for (const node::NodeType& type : host::nodes::catalogue()) rows.append(type_row(type));
  return rows;
}

// The components of a knob of numbers at a frame, given its value as JSON. Between keys they are held to
// the knob's range and kind, as a node sees them.
std::vector<double> knob_at(const std::string& type_name, const std::string& knob, const std::string& json,
                            double frame) {
  const node::NodeType* const type = host::nodes::find_type(type_name);
  if (!type) throw py::value_error("unknown type " + type_name);
  shot::Problems found("knob");
  const nlohmann::json given = {{knob, shot::parse_json(json, "knob: ")}};
  const std::vector<node::KnobValue> values = shot::parse_knobs(type->knobs, given, "", found);
  if (found.any()) throw shot::CompositionError(found.text());
  const node::Knobs knobs(type->knobs, values, frame, 1);
  for (const node::KnobSpec& spec : type->knobs) {
    if (spec.name != knob) continue;
    if (spec.kind == node::KnobKind::integer) return {static_cast<double>(knobs.integer(knob))};
    if (spec.kind == node::KnobKind::flag) return {knobs.flag(knob) ? 1.0 : 0.0};
    return knobs.numbers(knob);
  }
  return {};
}

}  // namespace

void add_composition(py::module_& module) {
  py::class_<CompiledComposition>(module, "Composition", "A checked composition; immutable.")
      .def_static("parse", &parse, Unlocked(), "text"_a, "file"_a, "settings"_a = Texts(),
                  "nodes"_a = Texts(), "views"_a = Texts(),
                  "Reads a text as if it stood in that file. Raises CompositionError.")
      .def_static("read", &read, Unlocked(), "file"_a, "settings"_a = Texts(), "nodes"_a = Texts(),
                  "views"_a = Texts(), "Reads a file. Raises CompositionError.")
      .def_property_readonly("file", [](const CompiledComposition& self) { return (*self).file; })
      .def_property_readonly("frames", [](const CompiledComposition& self) { return (*self).frames; })
      .def_property_readonly("outputs", &outputs);
  module.def("problems", &problems, Unlocked(), "text"_a, "file"_a,
             "What is wrong with a composition's text, a line each.");
  module.def("catalogue", &catalogue, "Every node type there is, as plain values.");
  module.def("knob_at", &knob_at, "type"_a, "knob"_a, "json"_a, "frame"_a,
             "A numeric knob's components at a frame, given its value as JSON.");
  module.def("did_you_mean", &host::did_you_mean, "name"_a, "candidates"_a,
             "What may have been meant by a name, in words; \"\" where none is near.");
  module.def(
      "shader_folder", [] { return host::programs::ShaderLibrary::default_root().string(); },
      "Where fragment programs are read from. Raises RuntimeError where there are none.");
  module.def("parse_frames", &shot::parse_frames, "text"_a, "The frames of a text such as \"1-24x2,^7\".");
  module.def("frames_text", &shot::frames_text, "frames"_a, "The shortest text for a list of frames.");
}

}  // namespace bindings
