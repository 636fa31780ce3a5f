#include "host/shot/problems.h"

#include "host/base/suggest.h"

#include <algorithm>

namespace host::shot {

std::string Problems::text() const {
  std::string all;
  for (const std::string& line : lines_) all += (all.empty() ? "" : "\n") + line;
  return all;
}

std::string quoted(const std::string& text) {
  return '"' + text + '"';
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
