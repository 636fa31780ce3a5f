#include "host/shot/schema.h"

#include "host/node/expectation.h"
#include "host/nodes/catalogue.h"
#include "host/shot/composition.h"

#include <cmath>

#include <nlohmann/json.hpp>

namespace host::shot {
namespace {

using Json = nlohmann::ordered_json;
using node::KnobKind;
using node::KnobSpec;
using node::NodeType;

Json reference(const char* name) {
  return {{"$ref", "#/$defs/" + std::string(name)}};
}

void add_range(Json& schema, const KnobSpec& spec) {
  if (std::isfinite(spec.minimum)) schema["minimum"] = spec.minimum;
  if (std::isfinite(spec.maximum)) schema["maximum"] = spec.maximum;
}

// One component: a constant or keys.
Json component_schema(const KnobSpec& spec) {
  if (spec.kind == KnobKind::flag) return {{"anyOf", {{{"type", "boolean"}}, reference("keys")}}};
  Json constant = {{"type", spec.kind == KnobKind::integer ? "integer" : "number"}};
  add_range(constant, spec);
  return {{"anyOf", {constant, reference("keys")}}};
}

Json default_value(const KnobSpec& spec) {
  if (spec.kind == KnobKind::object) return Json::object();
  if (spec.defaults.empty()) return spec.default_text;
  if (spec.kind == KnobKind::flag) return spec.defaults[0] != 0;
  return spec.length() == 1 ? Json(spec.defaults[0]) : Json(spec.defaults);
}

Json knob_schema(const KnobSpec& spec) {
  Json schema = {{"description",
                  spec.help + " Expects " + node::expectation(spec) + (spec.pixels ? ", in pixels." : ".")},
                 {"default", default_value(spec)}};
  switch (spec.kind) {
    case KnobKind::choice:
      if (spec.by_layer) {
        schema["anyOf"] = {{{"enum", spec.choices}}, {{"type", "object"}}};
      } else {
        schema["enum"] = spec.choices;
      }
      break;
    case KnobKind::texts:
      schema["default"] = Json::array();
      schema["anyOf"] = {{{"type", "string"}},
                         {{"type", "array"}, {"items", {{"type", "string"}}}, {"maxItems", spec.most_texts}}};
      break;
    case KnobKind::object:
      schema["type"] = "object";
      break;
    case KnobKind::text:
    case KnobKind::file:
      schema["type"] = "string";
      break;
    case KnobKind::number:
    case KnobKind::integer:
    case KnobKind::flag:
      schema["anyOf"] = component_schema(spec)["anyOf"];
      if (spec.length() > 1) {
        schema["anyOf"].push_back({{"type", "array"},
                                   {"items", component_schema(spec)},
                                   {"minItems", spec.fewest},
                                   {"maxItems", spec.length()}});
      }
  }
  return schema;
}

Json inputs_schema(const NodeType& type) {
  Json by_name = Json::object();
  for (const node::InputSpec& input : type.inputs) {
    const bool repeats = type.repeats_last_input && &input == &type.inputs.back();
    by_name[input.name] = {{"description", input.help}};
    by_name[input.name]["type"] = repeats ? Json({"string", "array"}) : Json("string");
  }
  const Json others = type.takes_layers ? Json{{"type", "string"}} : Json(false);
  Json list = {{"type", "array"}, {"items", {{"type", "string"}}}};
  if (!type.repeats_last_input) list["maxItems"] = type.inputs.size();
  return {{"anyOf",
           {{{"type", "object"}, {"properties", by_name}, {"additionalProperties", others}},
            {{"type", "string"}},
            list}}};
}

// What holds for nodes of one type.
Json type_rule(const NodeType& type) {
  Json knobs = Json::object();
  for (const KnobSpec& spec : type.knobs) knobs[spec.name] = knob_schema(spec);
  Json properties = {{"knobs", {{"properties", knobs}, {"additionalProperties", false}}}};
  if (!type.inputs.empty()) properties["inputs"] = inputs_schema(type);
  return {{"if", {{"properties", {{"type", {{"const", type.name}}}}}}},
          {"then", {{"properties", properties}}}};
}

Json node_schema() {
  Json names = Json::array();
  Json rules = Json::array();
  for (const NodeType& type : nodes::catalogue()) {
    names.push_back({{"const", type.name}, {"description", type.help}});
    rules.push_back(type_rule(type));
  }
  return {{"type", "object"},
          {"required", {"name", "type"}},
          {"additionalProperties", false},
          {"properties",
           {{"name", {{"type", "string"}, {"minLength", 1}}},
            {"type", {{"type", "string"}, {"oneOf", names}}},
            {"comment", {{"type", "string"}}},
            {"disabled", {{"type", "boolean"}, {"description", "Lets its first input through unchanged."}}},
            {"inputs", {{"description", "What the node reads: other nodes by input, or in their order."}}},
            {"knobs", {{"type", "object"}}}}},
          {"allOf", rules}};
}

Json keys_schema() {
  const Json key = {{"type", "array"},
                    {"prefixItems",
                     {{{"type", "number"}, {"description", "Frame"}},
                      {{"type", "number"}, {"description", "Value"}},
                      {{"enum", interpolation_names()}, {"description", "How it goes on to the next key"}},
                      {{"type", "number"}, {"description", "Slope before the key"}},
                      {{"type", "number"}, {"description", "Slope after the key"}}}},
                    {"minItems", 2},
                    {"maxItems", 5}};
  return {
      {"type", "object"},
      {"required", {"keys"}},
      {"additionalProperties", false},
      {"properties",
       {{"keys", {{"type", "array"}, {"items", key}, {"minItems", 1}}},
        {"extrapolate",
         {{"type", "boolean"}, {"default", false}, {"description", "Go on in a line beyond the keys."}}}}}};
}

Json format_schema() {
  const Json side = {{"type", "integer"}, {"minimum", 1}, {"maximum", 65536}};
  return {
      {"type", "object"},
      {"required", {"width", "height"}},
      {"additionalProperties", false},
      {"properties",
       {{"width", side}, {"height", side}, {"pixel_aspect", {{"type", "number"}, {"exclusiveMinimum", 0}}}}}};
}

}  // namespace

std::string composition_schema() {
  const Json names = {{"anyOf", {{{"type", "string"}}, {{"type", "array"}, {"items", {{"type", "string"}}}}}},
                      {"description", "Nodes to render; by default those that write files."}};
  const Json schema = {
      {"$schema", "https://json-schema.org/draft/2020-12/schema"},
      {"title", "quorvel composition"},
      {"type", "object"},
      {"required", {"format", "nodes"}},
      {"additionalProperties", false},
      {"properties",
       {{"$schema", {{"type", "string"}}},
        {"comment", {{"type", "string"}}},
        {"format", format_schema()},
        {"frames",
         {{"type", {"string", "integer"}},
          {"default", "1"},
          {"description", "Frames to render: 1-24, 1-100x10, 3,7,9, -5--1; ^5 leaves out."}}},
        {"views",
         {{"type", "array"},
          {"items", {{"type", "string"}, {"minLength", 1}}},
          {"minItems", 1},
          {"uniqueItems", true},
          {"description",
           "What to render once each: %V in a path is the view's name, %v its first letter."}}},
        {"nodes", {{"type", "array"}, {"items", reference("node")}, {"minItems", 1}}},
        {"output", names}}},
      {"$defs", {{"keys", keys_schema()}, {"node", node_schema()}}}};
  return schema.dump(2) + "\n";
}

}  // namespace host::shot
