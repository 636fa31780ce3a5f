#include "host/node/knob.h"

#include <qv/anim/curve.h>
#include <qv/nodes/time/frames.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace host::node {
namespace {

KnobSpec make(std::string name, KnobKind kind, std::string help) {
  KnobSpec spec;
  spec.name = std::move(name);
  spec.kind = kind;
  spec.help = std::move(help);
  return spec;
}

bool holds_text(KnobKind kind) {
  return kind == KnobKind::choice || kind == KnobKind::text || kind == KnobKind::file ||
         kind == KnobKind::object;
}

[[noreturn]] void wrong_kind(std::string_view name, std::string_view kind) {
  throw std::logic_error("knob \"" + std::string(name) + "\" is no " + std::string(kind));
}

}  // namespace

const char* kind_name(KnobKind kind) {
  switch (kind) {
    case KnobKind::number:
      return "number";
    case KnobKind::integer:
      return "integer";
    case KnobKind::flag:
      return "flag";
    case KnobKind::choice:
      return "choice";
    case KnobKind::text:
      return "text";
    case KnobKind::texts:
      return "texts";
    case KnobKind::file:
      return "file";
    case KnobKind::object:
      break;
  }
  return "object";
}

KnobSpec KnobSpec::within(double least, double most) && {
  minimum = least;
  maximum = most;
  return std::move(*this);
}

KnobSpec KnobSpec::or_pairs() && {
  pairs = true;
  return std::move(*this);
}

KnobSpec KnobSpec::or_by_layer() && {
  by_layer = true;
  return std::move(*this);
}

KnobSpec KnobSpec::in_pixels() && {
  pixels = true;
  return std::move(*this);
}

KnobSpec KnobSpec::at_least(int components) && {
  fewest = components;
  return std::move(*this);
}

KnobSpec number(std::string name, double value, std::string help) {
  return numbers(std::move(name), {value}, std::move(help));
}

KnobSpec numbers(std::string name, std::initializer_list<double> values, std::string help) {
  KnobSpec spec = make(std::move(name), KnobKind::number, std::move(help));
  spec.defaults = values;
  spec.fewest = spec.length();
  return spec;
}

KnobSpec integer(std::string name, int64_t value, std::string help) {
  KnobSpec spec = make(std::move(name), KnobKind::integer, std::move(help));
  spec.defaults = {static_cast<double>(value)};
  return spec;
}

KnobSpec flag(std::string name, bool value, std::string help) {
  KnobSpec spec = make(std::move(name), KnobKind::flag, std::move(help));
  spec.defaults = {value ? 1.0 : 0.0};
  spec.minimum = 0;
  spec.maximum = 1;
  return spec;
}

KnobSpec choice(std::string name, std::string value, std::vector<std::string> choices, std::string help) {
  KnobSpec spec = make(std::move(name), KnobKind::choice, std::move(help));
  spec.default_text = std::move(value);
  spec.choices = std::move(choices);
  return spec;
}

KnobSpec text(std::string name, std::string value, std::string help) {
  KnobSpec spec = make(std::move(name), KnobKind::text, std::move(help));
  spec.default_text = std::move(value);
  return spec;
}

KnobSpec texts(std::string name, int most, std::string help) {
  KnobSpec spec = make(std::move(name), KnobKind::texts, std::move(help));
  spec.most_texts = most;
  return spec;
}

KnobSpec file(std::string name, std::string help) {
  return make(std::move(name), KnobKind::file, std::move(help));
}

KnobSpec object(std::string name, std::string help) {
  KnobSpec spec = make(std::move(name), KnobKind::object, std::move(help));
  spec.default_text = "{}";
  return spec;
}

KnobValue KnobValue::default_of(const KnobSpec& spec) {
  KnobValue value;
  for (const double component : spec.defaults) value.components.push_back({component, nullptr});
  value.text = spec.default_text;
  return value;
}

bool KnobValue::animated() const {
  return std::any_of(components.begin(), components.end(),
                     [](const KnobComponent& component) { return component.curve != nullptr; });
}

Knobs::Knobs(std::span<const KnobSpec> specs, std::span<const KnobValue> values, double time, double scale)
    : specs_(specs), values_(values), time_(time), scale_(scale) {
  if (specs.size() != values.size()) throw std::logic_error("knobs: one value a spec");
}

size_t Knobs::find(std::string_view name) const {
  for (size_t i = 0; i < specs_.size(); ++i) {
    if (specs_[i].name == name) return i;
  }
  throw std::logic_error("no knob \"" + std::string(name) + "\" is declared");
}

double Knobs::value(size_t knob, size_t component) const {
  const KnobSpec& spec = specs_[knob];
  const KnobComponent& given = values_[knob].components.at(component);
  double value = given.constant;
  // A curve may swing beyond its keys, which were checked, so the limits are held here.
  if (given.curve) value = std::min(std::max(given.curve->value(time_), spec.minimum), spec.maximum);
  return spec.pixels ? value * scale_ : value;
}

double Knobs::number(std::string_view name, size_t component) const {
  const size_t knob = find(name);
  if (specs_[knob].kind != KnobKind::number) wrong_kind(name, "number");
  return value(knob, component);
}

std::vector<double> Knobs::numbers(std::string_view name) const {
  const size_t knob = find(name);
  if (specs_[knob].kind != KnobKind::number) wrong_kind(name, "list of numbers");
  std::vector<double> all(values_[knob].components.size());
  for (size_t i = 0; i < all.size(); ++i) all[i] = value(knob, i);
  return all;
}

int64_t Knobs::integer(std::string_view name) const {
  const size_t knob = find(name);
  if (specs_[knob].kind != KnobKind::integer) wrong_kind(name, "integer");
  return qv::nodes::time::whole(value(knob, 0), false);
}

bool Knobs::flag(std::string_view name) const {
  const size_t knob = find(name);
  if (specs_[knob].kind != KnobKind::flag) wrong_kind(name, "flag");
  return value(knob, 0) != 0;
}

const std::string& Knobs::text(std::string_view name) const {
  const size_t knob = find(name);
  if (!holds_text(specs_[knob].kind)) wrong_kind(name, "text");
  return values_[knob].text;
}

std::vector<std::string> Knobs::texts(std::string_view name) const {
  const size_t knob = find(name);
  if (specs_[knob].kind != KnobKind::texts) wrong_kind(name, "list of texts");
  std::vector<std::string> list;
  std::istringstream lines(values_[knob].text);
  for (std::string line; std::getline(lines, line);) list.push_back(line);
  return list;
}

int Knobs::choice(std::string_view name) const {
  const size_t knob = find(name);
  const std::vector<std::string>& choices = specs_[knob].choices;
  const auto found = std::find(choices.begin(), choices.end(), values_[knob].text);
  if (specs_[knob].kind != KnobKind::choice || found == choices.end()) wrong_kind(name, "choice");
  return static_cast<int>(found - choices.begin());
}

bool Knobs::animated(std::string_view name) const {
  return values_[find(name)].animated();
}

Knobs Knobs::at(double time) const {
  return {specs_, values_, time, scale_};
}

}  // namespace host::node
