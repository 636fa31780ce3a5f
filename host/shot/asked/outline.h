#pragma once

#include <string>
#include <utility>
#include <vector>

namespace host::shot::asked {

// What can be named of a composition, whether or not it is right otherwise.
struct Outline {
  std::vector<std::pair<std::string, std::string>> nodes;  // names and types
  std::vector<std::string> views;
};

// Of a file that somebody is still typing the name of: nothing when it cannot be read. Never throws.
Outline outline(const std::string& file);

}  // namespace host::shot::asked
