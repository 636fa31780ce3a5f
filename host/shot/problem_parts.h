#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace host::shot {

// One thing that is wrong with a composition, taken apart for programs; "" where a part does not apply.
struct Problem {
  std::string node;
  std::string knob;
  std::string message;
  std::string suggestion;  // what may have been meant by a name
};

// The parts of a CompositionError's text, a problem a line; `file` is what the composition calls itself.
std::vector<Problem> problem_parts(std::string_view text, std::string_view file);

}  // namespace host::shot
