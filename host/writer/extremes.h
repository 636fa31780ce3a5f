#pragma once

#include <cstdint>
#include <string>

namespace host::writer {

// Pixels, not values, that a file cannot hold or that spoil what is made of it.
struct Extremes {
  int64_t held = 0;  // beyond the most that a half holds, and held there
  int64_t infinite = 0;
  int64_t not_a_number = 0;

  Extremes& operator+=(const Extremes& more);
};

// A person's words for them, empty when there are none. `integers`: a file of whole numbers, in which what
// is no number is 0.
std::string notice_of(const Extremes& found, bool integers);

}  // namespace host::writer
