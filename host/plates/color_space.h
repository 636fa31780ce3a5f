#pragma once

#include <string>

namespace host::plates {

// How the colour of a file is encoded, and what says so, for people: "the file says so".
struct ColorSpace {
  std::string name;  // "sRGB", "linear", or another that the file gives it
  std::string why;
};

// What a file's first part tells of its colour.
struct ColorHints {
  std::string description;  // its text, of which the first line may be the note of files::color_note
  std::string space;    // "Linear", "sRGB", "Gamma2.2", newer names of them or another; "" where it has none
  std::string profile;  // what its colour profile is called, or ""
  bool floats = false;  // its channels are no whole numbers
};

// Whole numbers are sRGB and floats linear unless the file says otherwise. Thread-safe.
ColorSpace color_space_of(const ColorHints& hints);

}  // namespace host::plates
