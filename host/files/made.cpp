#include "host/files/made.h"

#include <array>
#include <charconv>
#include <cstddef>

namespace host::files {
namespace {

constexpr std::string_view name = "quorvel";
constexpr std::string_view scale_mark = ", scale ";
constexpr std::string_view digest_mark = ", made from ";

// What stands behind a mark, up to the next one; "" where the text has none.
std::string_view behind(std::string_view software, std::string_view mark) {
  const size_t at = software.starts_with(name) ? software.find(mark) : std::string_view::npos;
  if (at == std::string_view::npos) return {};
  const std::string_view rest = software.substr(at + mark.size());
  return rest.substr(0, rest.find(','));
}

}  // namespace

std::string software_text(double scale, const std::string& digest) {
  std::string text(name);
  if (scale != 1) {
    std::array<char, 32> digits{};  // enough for the shortest text of any double
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), scale).ptr;
    text += std::string(scale_mark) + std::string(digits.data(), end);
  }
  return digest.empty() ? text : text + std::string(digest_mark) + digest;
}

Made made_by(std::string_view software) {
  Made made;
  made.digest = behind(software, digest_mark);
  const std::string_view scale = behind(software, scale_mark);
  std::from_chars(scale.data(), scale.data() + scale.size(), made.scale);
  return made;
}

const char* color_note(bool srgb) {
  return srgb ? "colour: sRGB" : "colour: linear";
}

std::string with_color_note(bool srgb, const std::string& text) {
  return color_note(srgb) + (text.empty() ? "" : "\n" + text);
}

std::string without_color_note(const std::string& text) {
  for (const bool srgb : {true, false}) {
    const std::string note = color_note(srgb);
    if (text == note) return "";
    if (text.starts_with(note + "\n")) return text.substr(note.size() + 1);
  }
  return text;
}

}  // namespace host::files
