#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

namespace host::shot {

// Collects what is wrong with a composition, so that a person sees all of it at once. A place is the
// text in front of a message, such as `node "soft": knob "size": `; the file's name goes before it, unless
// the place is an option, such as `--views: `.
class Problems {
 public:
  explicit Problems(std::string file) : file_(std::move(file)) {}

  void add(const std::string& place, const std::string& message);

  // What would begin with `place` begins with `instead` from now on: the file is not at fault.
  void say_of(const std::string& place, const std::string& instead) {
    elsewhere_[place] = instead;
  }

  bool any() const {
    return !lines_.empty();
  }
  std::string text() const;

 private:
  std::string file_;
  std::map<std::string, std::string> elsewhere_;
  std::vector<std::string> lines_;
};

// `text` in double quotes.
std::string quoted(const std::string& text);

// `node "soft": `, the place of whatever is said of a node.
std::string node_place(const std::string& name);

// A text as JSON with comments. Throws CompositionError that begins with the place, also for lists and
// objects so deep within each other that copying them would run out of stack.
nlohmann::json parse_json(std::string_view text, const std::string& place);

// What stands there, shortly, for "expected ..., found ...".
std::string found(const nlohmann::json& value);

// Reports every member of an object that is not among the known ones, with a suggestion.
void refuse_unknown(const nlohmann::json& object, const std::vector<std::string>& known,
                    const std::string& place, Problems& problems);

}  // namespace host::shot
