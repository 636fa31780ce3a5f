#include "host/shot/parse_knobs.h"

#include "host/base/suggest.h"
#include "host/node/expectation.h"
#include "host/shot/parse_curve.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

namespace host::shot {

using node::expectation;
using node::KnobComponent;
using node::KnobKind;
using node::KnobSpec;
using node::KnobValue;

namespace {

bool is_keyed(const nlohmann::json& value) {
  return value.is_object();
}

// One component, or nothing when it is not what the knob takes.
std::optional<KnobComponent> parse_component(const nlohmann::json& value, const KnobSpec& spec,
                                             const std::string& place, Problems& problems) {
  KnobComponent component;
  if (is_keyed(value)) return parse_curve(value, spec, place, problems);
  bool fits = spec.kind == KnobKind::flag ? value.is_boolean() : value.is_number();
  if (fits) {
    component.constant = value.is_boolean() ? (value.get<bool>() ? 1.0 : 0.0) : value.get<double>();
    fits = component.constant >= spec.minimum && component.constant <= spec.maximum;
    const bool whole = component.constant == std::floor(component.constant);
    fits = fits && (spec.kind != KnobKind::integer || whole);
  }
  if (fits) return component;
  problems.add(place, "expected " + expectation(spec) + ", found " + found(value));
  return std::nullopt;
}

bool parse_numbers(const nlohmann::json& value, const KnobSpec& spec, const std::string& place,
                   Problems& problems, KnobValue& out) {
  if (!value.is_array()) {
    const auto component = parse_component(value, spec, place, problems);
    if (!component) return false;
    out.components.assign(static_cast<size_t>(spec.length()), *component);
    return true;
  }
  const auto count = static_cast<int64_t>(value.size());
  if (count < spec.fewest || count > spec.length()) {
    problems.add(place, "expected " + expectation(spec) + ", found " + found(value));
    return false;
  }
  out.components.clear();
  for (const nlohmann::json& each : value) {
    const auto component = parse_component(each, spec, place, problems);
    if (!component) return false;
    out.components.push_back(*component);
  }
  return true;
}

// An object of texts as "name=value name=value"; nothing when it holds anything else.
std::optional<std::string> joined_pairs(const nlohmann::json& object) {
  std::string text;
  for (const auto& [name, value] : object.items()) {
    if (!value.is_string()) return std::nullopt;
    text.append(text.empty() ? "" : " ").append(name).append("=").append(value.get<std::string>());
  }
  return text;
}

bool parse_text(const nlohmann::json& value, const KnobSpec& spec, const std::string& place,
                Problems& problems, KnobValue& out) {
  const auto given = value.is_string() ? value.get<std::string>() : std::string();
  if (const auto pairs = spec.pairs && value.is_object() ? joined_pairs(value) : std::nullopt) {
    out.text = *pairs;
    return true;
  }
  if ((spec.kind == KnobKind::object || spec.by_layer) && value.is_object()) {
    out.text = value.dump();
    return true;
  }
  const bool listed = std::find(spec.choices.begin(), spec.choices.end(), given) != spec.choices.end();
  const bool taken = spec.kind == KnobKind::object ? false : spec.kind != KnobKind::choice || listed;
  if (!value.is_string() || !taken) {
    problems.add(place, "expected " + expectation(spec) + ", found " + found(value) +
                            did_you_mean(given, spec.choices));
    return false;
  }
  out.text = given;
  return true;
}

// A text, or a list of a few. An empty text in a list means nothing, a line break would part it.
bool parse_texts(const nlohmann::json& value, const KnobSpec& spec, const std::string& place,
                 Problems& problems, KnobValue& out) {
  const bool list = value.is_array();
  const nlohmann::json texts = list ? value : nlohmann::json::array({value});
  bool fits = texts.size() <= static_cast<size_t>(spec.most_texts);
  for (const nlohmann::json& each : texts) {
    const auto text = each.is_string() ? each.get<std::string>() : std::string();
    fits = fits && each.is_string() && (!text.empty() || !list) && text.find('\n') == std::string::npos;
    out.text += (out.text.empty() ? "" : "\n") + text;
  }
  if (!fits) problems.add(place, "expected " + expectation(spec) + ", found " + found(value));
  return fits;
}

KnobValue parse_knob(const nlohmann::json& value, const KnobSpec& spec, const std::string& place,
                     Problems& problems) {
  KnobValue out = KnobValue::default_of(spec);
  const bool numeric =
      spec.kind == KnobKind::number || spec.kind == KnobKind::integer || spec.kind == KnobKind::flag;
  const bool fits = numeric                        ? parse_numbers(value, spec, place, problems, out)
                    : spec.kind == KnobKind::texts ? parse_texts(value, spec, place, problems, out)
                                                   : parse_text(value, spec, place, problems, out);
  return fits ? out : KnobValue::default_of(spec);
}

}  // namespace

std::vector<KnobValue> parse_knobs(const std::vector<KnobSpec>& specs, const nlohmann::json& given,
                                   const std::string& place, Problems& problems) {
  std::vector<std::string> names;
  names.reserve(specs.size());
  for (const KnobSpec& spec : specs) names.push_back(spec.name);
  for (const auto& [name, value] : given.items()) {
    if (std::find(names.begin(), names.end(), name) != names.end()) continue;
    problems.add(place, "unknown knob " + quoted(name) + did_you_mean(name, names));
  }
  std::vector<KnobValue> values;
  for (const KnobSpec& spec : specs) {
    const auto at = given.find(spec.name);
    values.push_back(at == given.end()
                         ? KnobValue::default_of(spec)
                         : parse_knob(*at, spec, place + "knob " + quoted(spec.name) + ": ", problems));
  }
  return values;
}

}  // namespace host::shot
