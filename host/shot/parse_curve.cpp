#include "host/shot/parse_curve.h"

#include <qv/anim/curve.h>

#include "host/base/suggest.h"
#include "host/node/expectation.h"
#include "host/node/identity.h"
#include "host/shot/composition.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

namespace host::shot {
namespace {

std::optional<uint8_t> parse_interpolation(const nlohmann::json& value, const std::string& place,
                                           Problems& problems) {
  const std::vector<std::string>& names = interpolation_names();
  const auto name = value.is_string() ? value.get<std::string>() : std::string();
  const auto at = std::find(names.begin(), names.end(), name);
  if (at != names.end()) return static_cast<uint8_t>(at - names.begin());
  std::string list;
  for (const std::string& each : names) list += (list.empty() ? "" : ", ") + each;
  problems.add(place,
               "expected an interpolation (" + list + "), found " + found(value) + did_you_mean(name, names));
  return std::nullopt;
}

std::optional<qv::anim::Key> parse_key(const nlohmann::json& value, const node::KnobSpec& spec,
                                       const std::string& place, Problems& problems) {
  const bool shaped = value.is_array() && value.size() >= 2 && value.size() <= 5 && value[0].is_number() &&
                      value[1].is_number();
  if (!shaped) {
    problems.add(place, "expected [frame, value] or [frame, value, interpolation], found " + found(value));
    return std::nullopt;
  }
  qv::anim::Key key{};
  key.time = value[0].get<double>();
  key.value = value[1].get<double>();
  key.kind = qv::anim::key_linear;
  if (!(key.value >= spec.minimum && key.value <= spec.maximum)) {
    problems.add(place, "expected " + node::expectation(spec) + ", found " + found(value[1]));
    return std::nullopt;
  }
  if (value.size() == 2) return key;
  const auto kind = parse_interpolation(value[2], place, problems);
  if (!kind) return std::nullopt;
  key.kind = *kind;
  if (value.size() == 3) return key;
  const bool slopes = key.kind == qv::anim::key_slopes && value[3].is_number() && value.back().is_number();
  if (!slopes) {
    problems.add(place, "expected [frame, value, \"slopes\", in, out], found " + found(value));
    return std::nullopt;
  }
  key.has_in = true;
  key.in_slope = value[3].get<double>();
  key.has_out = value.size() == 5;
  if (key.has_out) key.out_slope = value[4].get<double>();
  return key;
}

// Keys in ascending order, or nothing.
std::optional<std::vector<qv::anim::Key>> parse_keys(const nlohmann::json& list, const node::KnobSpec& spec,
                                                     const std::string& place, Problems& problems) {
  if (!list.is_array() || list.empty()) {
    problems.add(place, "expected a list of keys [frame, value, interpolation], found " + found(list));
    return std::nullopt;
  }
  std::vector<qv::anim::Key> keys;
  for (size_t i = 0; i < list.size(); ++i) {
    const std::string key_place = place + "key " + std::to_string(i + 1) + ": ";
    const auto key = parse_key(list[i], spec, key_place, problems);
    if (!key) return std::nullopt;
    if (!keys.empty() && key->time <= keys.back().time) {
      problems.add(key_place,
                   "expected a frame after " + found(list[i - 1][0]) + ", found " + found(list[i][0]));
      return std::nullopt;
    }
    keys.push_back(*key);
  }
  return keys;
}

int64_t id_of(const std::vector<qv::anim::Key>& keys, bool extrapolate) {
  node::Identity identity;
  identity.add(static_cast<int64_t>(extrapolate));
  for (const qv::anim::Key& key : keys) {
    for (const double value : {key.time, key.value, key.in_slope, key.out_slope}) identity.add(value);
    for (const int64_t value : {int64_t{key.kind}, int64_t{key.has_in}, int64_t{key.has_out}})
      identity.add(value);
  }
  return identity.key();
}

}  // namespace

const std::vector<std::string>& interpolation_names() {
  static const std::vector<std::string> names{"step",   "linear", "smooth", "cubic",
                                              "spline", "flat",   "slopes"};
  return names;
}

std::optional<node::KnobComponent> parse_curve(const nlohmann::json& object, const node::KnobSpec& spec,
                                               const std::string& place, Problems& problems) {
  refuse_unknown(object, {"keys", "extrapolate"}, place, problems);
  const auto extrapolate = object.value("extrapolate", nlohmann::json(false));
  if (!extrapolate.is_boolean()) {
    problems.add(place, "\"extrapolate\": expected true or false, found " + found(extrapolate));
    return std::nullopt;
  }
  auto keys = parse_keys(object.value("keys", nlohmann::json()), spec, place, problems);
  if (!keys) return std::nullopt;
  try {
    node::KnobComponent component;
    component.curve_id = id_of(*keys, extrapolate.get<bool>());
    component.curve = std::make_shared<qv::anim::Curve>(std::move(*keys), extrapolate.get<bool>());
    return component;
  } catch (const qv::anim::NotCompilable& error) {
    problems.add(place, std::string("these keys make no curve: ") + error.what());
    return std::nullopt;
  }
}

}  // namespace host::shot
