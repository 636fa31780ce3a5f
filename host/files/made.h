#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace host::files {

// What a written image says of how it was made; its writer puts it there.
struct Made {
  int64_t width = 0;  // of the format, pixels
  int64_t height = 0;
  double scale = 1;    // --proxy; 1 where a file of another program says nothing
  std::string digest;  // of what it was made from; "" where the file does not say
};

// The text by which a file tells its scale and what it was made from: "quorvel", or "quorvel, scale 0.5, made
// from DIGEST".
std::string software_text(double scale, const std::string& digest);

// The scale and the digest of such a text.
Made made_by(std::string_view software);

// The text by which files that have no other way say whether their colour is encoded.
const char* color_note(bool srgb);

// A text behind that note, and the text alone.
std::string with_color_note(bool srgb, const std::string& text);
std::string without_color_note(const std::string& text);

}  // namespace host::files
