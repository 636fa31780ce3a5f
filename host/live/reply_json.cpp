#include "host/live/reply_json.h"

#include "host/live/pixels.h"
#include "host/node/expectation.h"
#include "host/nodes/catalogue.h"
#include "host/shot/problem_parts.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>

namespace host::live {
namespace {

Json format_json(const Format& format) {
  return {{"width", format.width}, {"height", format.height}, {"pixel_aspect", format.pixel_aspect}};
}

Json problem_json(const shot::Problem& problem) {
  return {{"node", problem.node},
          {"knob", problem.knob},
          {"message", problem.message},
          {"suggestion", problem.suggestion}};
}

Json limit_json(double limit) {
  return std::isfinite(limit) ? Json(limit) : Json();
}

Json knob_json(const node::KnobSpec& knob) {
  return {{"name", knob.name},
          {"kind", node::kind_name(knob.kind)},
          {"help", knob.help},
          {"expects", node::expectation(knob)},
          {"defaults", knob.defaults},
          {"default_text", knob.default_text},
          {"choices", knob.choices},
          {"minimum", limit_json(knob.minimum)},
          {"maximum", limit_json(knob.maximum)},
          {"fewest", knob.fewest},
          {"pixels", knob.pixels}};
}

Json type_json(const node::NodeType& type) {
  Json inputs = Json::array(), knobs = Json::array();
  for (const node::InputSpec& input : type.inputs)
    inputs.push_back({{"name", input.name}, {"required", input.required}, {"help", input.help}});
  for (const node::KnobSpec& knob : type.knobs) knobs.push_back(knob_json(knob));
  return {{"name", type.name},
          {"family", type.family},
          {"help", type.help},
          {"inputs", std::move(inputs)},
          {"knobs", std::move(knobs)},
          {"repeats_last_input", type.repeats_last_input},
          {"writes_files", type.writes_files}};
}

// A box of an image of one format, in pixels of another.
Box carried(const Box& box, const Format& from, const Format& to) {
  if (is_empty(box)) return {};
  const double x = static_cast<double>(to.width) / static_cast<double>(from.width);
  const double y = static_cast<double>(to.height) / static_cast<double>(from.height);
  const auto low = [](int64_t at, double by) {
    return std::llround(std::floor(static_cast<double>(at) * by));
  };
  const auto high = [](int64_t at, double by) {
    return std::llround(std::ceil(static_cast<double>(at) * by));
  };
  return {low(box[0], x), low(box[1], y), high(box[2], x), high(box[3], y)};
}

// What a node took in all of the frames that it was asked for.
struct Took {
  bool computed = false;
  double ms = 0;
  uint64_t bytes = 0;
};

}  // namespace

std::string dumped(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json info_json(const Document::State& document, const std::string& path) {
  const shot::Composition& composition = *document.composition;
  Json outputs = Json::array(), nodes = Json::array();
  for (const int at : composition.outputs) outputs.push_back(composition.nodes[static_cast<size_t>(at)].name);
  for (const shot::WrittenNode& node : composition.written) {
    nodes.push_back({{"name", node.name},
                     {"type", node.type->name},
                     {"inputs", node.inputs},
                     {"disabled", node.disabled}});
  }
  return {{"version", document.version},   {"path", path},
          {"saved", document.saved},       {"format", format_json(composition.format)},
          {"frames", composition.frames},  {"views", composition.views},
          {"outputs", std::move(outputs)}, {"nodes", std::move(nodes)}};
}

Json text_json(const Document::State& document, const std::string& path) {
  Json json = info_json(document, path);
  json["text"] = *document.text;
  return json;
}

Json problems_json(std::string_view text, std::string_view file) {
  Json problems = Json::array();
  for (const shot::Problem& problem : shot::problem_parts(text, file))
    problems.push_back(problem_json(problem));
  return {{"problems", std::move(problems)}};
}

Json value_json(double value) {
  if (std::isfinite(value)) return value;
  if (std::isnan(value)) return "nan";
  return value > 0 ? "inf" : "-inf";
}

Json catalogue_json() {
  Json types = Json::array();
  for (const node::NodeType& type : nodes::catalogue()) types.push_back(type_json(type));
  return types;
}

Json render_json(const RenderState& state) {
  return {{"state", state_name(state.is)},
          {"done", state.done},
          {"total", state.total},
          {"message", state.message}};
}

Json frame_json(const session::Drawn& drawn, const Format& full) {
  const draw::FrameImage& image = drawn.image;
  const bool has_pixels = drawn.error.empty() && image.pixels;
  const Format& format = image.extent.format;
  const bool whole = image.area == format_box(format);
  Json json = {{"id", drawn.wish.id},
               {"slot", std::string(1, drawn.wish.slot)},
               {"version", drawn.version},
               {"node", drawn.node},
               {"frame", drawn.wish.frame},
               {"scale", drawn.wish.scale},
               {"pixels", pixels_name(drawn.wish.pixels)},
               {"width", has_pixels ? box_width(image.area) : 0},
               {"height", has_pixels ? box_height(image.area) : 0},
               {"area", whole ? format_box(full) : carried(image.area, format, full)},
               {"window", carried(image.extent.window, format, full)},
               {"format", format_json(full)},
               {"coverage", image.coverage},
               {"cached", drawn.cached},
               {"ms", drawn.ms},
               {"problem", nullptr}};
  if (drawn.error.empty()) return json;
  shot::Problem problem = shot::problem_parts(drawn.error, "").front();
  if (problem.node.empty()) problem.node = drawn.error_node;
  json["problem"] = problem_json(problem);
  return json;
}

Json nodes_json(const session::Drawn& drawn) {
  std::map<std::string, Took> all;
  for (const session::NodeUse& use : drawn.uses) {
    Took& took = all[use.node];
    took.computed |= !use.cached;
    took.ms += use.ms;
    took.bytes += use.bytes;
  }
  if (!drawn.error.empty() && !drawn.error_node.empty()) all[drawn.error_node];
  Json nodes = Json::array();
  for (const auto& [name, took] : all) {
    const bool failed = !drawn.error.empty() && name == drawn.error_node;
    nodes.push_back({{"name", name},
                     {"state", failed          ? "error"
                               : took.computed ? "computed"
                                               : "cached"},
                     {"ms", took.ms},
                     {"bytes", took.bytes},
                     {"message", failed ? drawn.error : ""}});
  }
  return {{"version", drawn.version},
          {"frame", drawn.wish.frame},
          {"node", drawn.node},
          {"scale", drawn.wish.scale},
          {"nodes", std::move(nodes)}};
}

}  // namespace host::live
