#include <qv/nodes/merge/channels.h>
#include <qv/nodes/merge/merge.h>

#include "python/bindings/arrays.h"
#include "python/bindings/core.h"

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include <pybind11/stl.h>

namespace bindings {

namespace py = pybind11;
using namespace py::literals;

namespace {

namespace merge = qv::nodes::merge;

using Four = std::tuple<float, float, float, float>;

Four four(const std::array<float, 4>& values) {
  return {values[0], values[1], values[2], values[3]};
}

std::vector<std::string> texts(std::span<const std::string_view> names) {
  return {names.begin(), names.end()};
}

void add_merges(py::module_& m) {
  using merge::MergeOut;
  using merge::MergeSetup;
  using merge::Pick;
  m.attr("merge_over") = static_cast<int>(merge::merge_over);
  m.def(
      "strip", [](std::string_view text) { return std::string(merge::strip(text)); }, "text"_a,
      "The text without the white space at its ends, as everywhere in node texts.");
  m.def("is_ascii", &merge::is_ascii, "text"_a, "Whether no byte of the text in UTF-8 is 0x80 or above.");
  m.def(
      "merge_operations", [] { return texts(merge::merge_operations()); },
      R"(The operations of a merge in the order of their numbers.

>>> from quorvel import core
>>> core.merge.merge_operations()[22]
'over')");
  m.def("merge_op_index", &merge::merge_op_index, "op"_a,
        "The number by which the merge program knows an operation; merge_over for any other text.");
  m.def("merge_alpha_masking", &merge::merge_alpha_masking, "op"_a, "wanted"_a,
        "Whether alpha masking takes effect: wanted, and not an operation that defines its own alpha.");

  py::class_<MergeOut>(m, "MergeOut",
                       "Which channels a merge writes: `mask` is 1 for each, of red, green, blue, alpha.")
      .def_readonly("none", &MergeOut::none)
      .def_readonly("chans", &MergeOut::chans)
      .def_property_readonly("mask", [](const MergeOut& it) { return four(it.mask); });
  m.def("merge_output", &merge::merge_output, "text"_a, R"(Reads an output channel text.

>>> from quorvel import core
>>> core.merge.merge_output(" rgb ").mask
(1.0, 1.0, 1.0, 0.0))");

  py::class_<MergeSetup>(
      m, "MergeSetup", "Everything that a merge node's program needs. Texts are stripped; `mix` is as given.")
      .def_readonly("a_chans", &MergeSetup::a_chans)
      .def_readonly("b_chans", &MergeSetup::b_chans)
      .def_readonly("mask_chans", &MergeSetup::mask_chans)
      .def_readonly("out_none", &MergeSetup::out_none)
      .def_readonly("out_chans", &MergeSetup::out_chans)
      .def_property_readonly("out_mask", [](const MergeSetup& it) { return four(it.out_mask); })
      .def_readonly("op", &MergeSetup::op)
      .def_readonly("alpha_masking", &MergeSetup::alpha_masking)
      .def_readonly("second_flag", &MergeSetup::second_flag)
      .def_readonly("mix", &MergeSetup::mix);
  m.def("merge_setup", &merge::merge_setup, "op"_a, "a"_a = "rgba", "b"_a = "rgba", "out"_a = "rgba",
        "mask"_a = "", "mix"_a = 1.0, "alpha_masking"_a = false, "second_flag"_a = false,
        "Gathers a merge node's settings: operation, channel sets of A, B, output and mask, mix amount.");

  m.def("switch_index", &merge::switch_index, "x"_a, "n"_a,
        "Which of n inputs a switch shows at position x.");
  py::class_<Pick>(m, "Pick", "Two inputs of a dissolve and the weight of the second: (1 - t) * a + t * b.")
      .def_readonly("a", &Pick::a)
      .def_readonly("b", &Pick::b)
      .def_readonly("t", &Pick::t);
  m.def("dissolve_pick", &merge::dissolve_pick, "x"_a, "n"_a,
        "Which two of n inputs a dissolve blends at position x.");
  m.def(
      "constant_color",
      [](double r, double g, double b, double a, std::string_view chans) {
        return four(merge::constant_color(r, g, b, a, chans));
      },
      "r"_a, "g"_a, "b"_a, "a"_a, "chans"_a = "rgba", "The colour of a constant node that writes `chans`.");
}

merge::Route route(int32_t kind, int32_t input, int32_t channel) {
  return {kind, input, channel};
}

Four shuffle_codes(const std::vector<merge::Route>& routes, bool keep, bool first, bool second) {
  if (routes.size() != 4)
    throw py::value_error("routes: four are needed, not " + std::to_string(routes.size()));
  return four(merge::shuffle_codes(std::span<const merge::Route, 4>(routes.data(), 4), keep, first, second));
}

std::vector<merge::Route> shuffle_routing(std::string_view text) {
  std::vector<merge::Route> routes(8);
  merge::shuffle_routing(text, std::span<merge::Route, 8>(routes.data(), 8));
  return routes;
}

void add_channels(py::module_& m) {
  using merge::Chan;
  using merge::Route;
  m.attr("channel_absent") = static_cast<int>(merge::channel_absent);
  m.attr("channel_red") = static_cast<int>(merge::channel_red);
  m.attr("channel_green") = static_cast<int>(merge::channel_green);
  m.attr("channel_blue") = static_cast<int>(merge::channel_blue);
  m.attr("channel_alpha") = static_cast<int>(merge::channel_alpha);
  m.attr("route_keep") = static_cast<int>(merge::route_keep);
  m.attr("route_black") = static_cast<int>(merge::route_black);
  m.attr("route_white") = static_cast<int>(merge::route_white);
  m.attr("route_input") = static_cast<int>(merge::route_input);
  m.attr("shuffle_first") = static_cast<int>(merge::shuffle_first);
  m.attr("shuffle_zero") = static_cast<int>(merge::shuffle_zero);
  m.attr("shuffle_one") = static_cast<int>(merge::shuffle_one);
  m.attr("shuffle_second") = static_cast<int>(merge::shuffle_second);
  m.attr("shuffle_keep") = static_cast<int>(merge::shuffle_keep);

  py::class_<Chan>(
      m, "Chan",
      "A channel of a layer: `layer`, \"rgba\" for the main one, and `index`, 0 to 3 or channel_absent.")
      .def_readonly("layer", &Chan::layer)
      .def_readonly("index", &Chan::index)
      .def("__repr__", [](const Chan& it) { return py::str("Chan({!r}, {})").format(it.layer, it.index); });
  m.def("common_parse_channel", &merge::common_parse_channel, "text"_a,
        R"(Reads a channel where the bare name of a layer is allowed too.

>>> from quorvel import core
>>> core.merge.common_parse_channel("depth.Z"), core.merge.common_parse_channel("alpha")
(Chan('depth', 0), Chan('rgba', 3)))");
  m.def("copy_parse_channel", &merge::copy_parse_channel, "text"_a,
        "Reads a channel where only \"layer.channel\" will do; None for any other text.");
  m.def("channelmerge_split", &merge::channelmerge_split, "text"_a,
        "Reads a channel-merge node's channel; a blank text, \"none\" and a leading minus give "
        "channel_absent.");
  m.def(
      "channelmerge_operations", [] { return texts(merge::channelmerge_operations()); },
      "The operations of a channel merge in the order of their numbers.");
  m.def("channelmerge_op", &merge::channelmerge_op, "op"_a,
        "The number of a channel merge's operation, or -1.");

  m.def("shuffle_slot_of", &merge::shuffle_slot_of, "text"_a, "fallback"_a = -1,
        "The place, 0 to 3, of a shuffle's channel; `fallback`, or -1, for a name that has none.");
  py::class_<Route>(
      m, "Route",
      "Where a shuffle takes an output channel from: a kind, and with route_input an input's channel.")
      .def(py::init(&route), "kind"_a = static_cast<int>(merge::route_keep), "input"_a = 0, "channel"_a = 0)
      .def_readonly("kind", &Route::kind)
      .def_readonly("input", &Route::input)
      .def_readonly("channel", &Route::channel);
  m.def("shuffle_codes", &shuffle_codes, "routes"_a, "keep_allowed"_a = true, "first_present"_a = true,
        "second_present"_a = true, R"(By what number the shuffle program finds each of four output channels.

shuffle_first or shuffle_second and a channel, shuffle_zero, shuffle_one or shuffle_keep. An input that is not
present gives shuffle_zero. ValueError: not four routes.)");
  m.def("shuffle_routing", &shuffle_routing, "text"_a, R"(Reads a shuffle's routing, always as eight routes.

A count and so many records of six words: source channel, source input, source fallback, target channel,
target group, target fallback. A record that cannot be used is skipped; routes that none names keep.

>>> from quorvel import core
>>> [route.kind for route in core.merge.shuffle_routing("1 white 0 -1 red 0 -1")]
[2, 0, 0, 0, 0, 0, 0, 0])");
}

}  // namespace

void add_merge(py::module_& core) {
  py::module_ m = core.def_submodule("merge",
                                     "What merge, switch, dissolve, constant, copy and shuffle nodes tell "
                                     "their programs. Nothing here fails: "
                                     "what cannot be read has a fallback.");
  add_merges(m);
  add_channels(m);
}

}  // namespace bindings
