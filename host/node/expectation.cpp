#include "host/node/expectation.h"

#include <cmath>

#include <nlohmann/json.hpp>

namespace host::node {
namespace {

std::string range_words(const KnobSpec& spec) {
  const bool low = std::isfinite(spec.minimum);
  const bool high = std::isfinite(spec.maximum);
  if (low && high) return " from " + number_text(spec.minimum) + " to " + number_text(spec.maximum);
  if (low) return " of at least " + number_text(spec.minimum);
  if (high) return " of at most " + number_text(spec.maximum);
  return "";
}

std::string numbers_words(const KnobSpec& spec) {
  if (spec.length() == 1) return "a number" + range_words(spec);
  const std::string count = spec.fewest == spec.length()
                                ? std::to_string(spec.length())
                                : std::to_string(spec.fewest) + " to " + std::to_string(spec.length());
  return count + " numbers" + range_words(spec);
}

}  // namespace

std::string number_text(double value) {
  const bool whole = value == std::floor(value) && std::abs(value) < 1e15;
  return (whole ? nlohmann::json(static_cast<int64_t>(value)) : nlohmann::json(value)).dump();
}

std::string expectation(const KnobSpec& spec) {
  switch (spec.kind) {
    case KnobKind::number:
      return numbers_words(spec);
    case KnobKind::integer:
      return "a whole number" + range_words(spec);
    case KnobKind::flag:
      return "true or false";
    case KnobKind::text:
      return "a text";
    case KnobKind::texts:
      return "a text or a list of up to " + std::to_string(spec.most_texts);
    case KnobKind::file:
      return "a file name";
    case KnobKind::object:
      return "an object of names and values";
    case KnobKind::choice:
      break;
  }
  std::string list;
  for (const std::string& each : spec.choices) list += (list.empty() ? "\"" : ", \"") + each + "\"";
  return "one of " + list + (spec.by_layer ? ", or an object by layer" : "");
}

}  // namespace host::node
