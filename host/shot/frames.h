#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace host::shot {

// Text that is no list of frames; names the part at fault and what was expected.
class FramesError : public std::invalid_argument {
 public:
  using std::invalid_argument::invalid_argument;
};

// The frames of a text, in the order given, each once:
//   7   1-10   10-1   1-100x10 (every tenth)   -5--1   3,7,9
//   ^5  ^20-30  leave out, wherever they stand
// Spaces around parts are fine. At most 1,000,000 frames. Throws FramesError.
std::vector<int64_t> parse_frames(std::string_view text);

// The shortest such text for a list, for people: 1, 2, 3, 7 is "1-3,7".
std::string frames_text(const std::vector<int64_t>& frames);

}  // namespace host::shot
