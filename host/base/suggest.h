#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace host {

// ` (did you mean "blur"?)` for the candidate nearest to a misspelled name, or "" when none is near
// enough to be meant. Distance: insertions, deletions, replacements and swaps of neighbours.
std::string did_you_mean(std::string_view name, const std::vector<std::string>& candidates);

}  // namespace host
