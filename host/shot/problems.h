#pragma once

#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace host::shot {

// Collects what is wrong with a composition, so that a person sees all of it at once. A place is the
// text in front of a message, such as `node "soft": knob "size": `.
class Problems {
 public:
  explicit Problems(std::string file) : file_(std::move(file)) {}

  void add(const std::string& place, const std::string& message) {
    lines_.push_back(file_ + ": " + place + message);
  }
  bool any() const {
    return !lines_.empty();
  }
  std::string text() const;

 private:
  std::string file_;
  std::vector<std::string> lines_;
};

// `text` in double quotes.
std::string quoted(const std::string& text);

// What stands there, shortly, for "expected ..., found ...".
std::string found(const nlohmann::json& value);

// Reports every member of an object that is not among the known ones, with a suggestion.
void refuse_unknown(const nlohmann::json& object, const std::vector<std::string>& known,
                    const std::string& place, Problems& problems);

}  // namespace host::shot
