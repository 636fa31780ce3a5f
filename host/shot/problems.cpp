#include "host/shot/problems.h"

#include "host/base/suggest.h"
#include "host/shot/composition.h"

#include <algorithm>

namespace host::shot {
namespace {

constexpr int deepest = 100;  // lists and objects within each other: values are copied by recursion

}  // namespace

void Problems::add(const std::string& place, const std::string& message) {
  const std::string line = place + message;
  for (const auto& [front, instead] : elsewhere_) {
    if (!line.starts_with(front)) continue;
    lines_.push_back(instead + line.substr(front.size()));
    return;
  }
  lines_.push_back(place.starts_with("--") ? line : file_ + ": " + line);
}

std::string Problems::text() const {
  std::string all;
  for (const std::string& line : lines_) all += (all.empty() ? "" : "\n") + line;
  return all;
}

std::string quoted(const std::string& text) {
  return '"' + text + '"';
}

std::string node_place(const std::string& name) {
  return "node " + quoted(name) + ": ";
}

nlohmann::json parse_json(std::string_view text, const std::string& place) {
  const auto check_depth = [&place](int depth, nlohmann::json::parse_event_t, const nlohmann::json&) {
    if (depth <= deepest) return true;
    throw CompositionError(place + "more than " + std::to_string(deepest) +
                           " lists and objects stand within each other");
  };
  try {
    return nlohmann::json::parse(text, check_depth, true, true);
  } catch (const nlohmann::json::exception& error) {
    // The library's text begins with its own name for the fault, which says nothing to a person.
    std::string message = error.what();
    const size_t end = message.find("] ");
    if (end != std::string::npos) message.erase(0, end + 2);
    throw CompositionError(place + "not JSON: " + message);
  }
}

std::string found(const nlohmann::json& value) {
  if (value.is_array()) return "a list of " + std::to_string(value.size());
  if (value.is_object()) return "an object";
  if (value.is_null()) return "nothing";
  // Bytes that are no UTF-8 would make dump throw.
  const std::string text = value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  return text.size() <= 60 ? text : text.substr(0, 57) + "...";
}

void refuse_unknown(const nlohmann::json& object, const std::vector<std::string>& known,
                    const std::string& place, Problems& problems) {
  for (const auto& [name, value] : object.items()) {
    if (std::find(known.begin(), known.end(), name) != known.end()) continue;
    problems.add(place, "unknown member " + quoted(name) + did_you_mean(name, known));
  }
}

}  // namespace host::shot
