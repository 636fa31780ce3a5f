#include "host/files/made.h"

#include "host/files/whole.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <vector>

#include <OpenImageIO/imageio.h>

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

Made made_of(const OIIO::ImageSpec& spec) {
  const std::string software = spec.get_string_attribute("Software");
  Made made{spec.full_width, spec.full_height, 1, std::string(behind(software, digest_mark))};
  const std::string_view scale = behind(software, scale_mark);
  std::from_chars(scale.data(), scale.data() + scale.size(), made.scale);
  return made;
}

std::unique_ptr<OIIO::ImageInput> opened(const std::string& path) {
  auto input = OIIO::ImageInput::open(path);
  if (!input) throw std::runtime_error(path + ": " + OIIO::geterror());
  return input;
}

// Reads all pixels of a part, a strip at a time.
bool decodes(OIIO::ImageInput& input, int part) {
  constexpr int strip = 256;
  const OIIO::ImageSpec spec = input.spec(part, 0);
  const bool tiles = spec.tile_width > 0;
  const int rows = tiles ? spec.tile_height : std::min(strip, spec.height);
  std::vector<unsigned char> pixels(static_cast<size_t>(rows) * spec.scanline_bytes(true));
  bool whole = true;
  for (int row = 0; whole && row < spec.height; row += rows) {
    const int begin = spec.y + row;
    const int end = std::min(begin + rows, spec.y + spec.height);
    whole = tiles ? input.read_tiles(part, 0, spec.x, spec.x + spec.width, begin, end, spec.z, spec.z + 1, 0,
                                     spec.nchannels, OIIO::TypeUnknown, pixels.data())
                  : input.read_scanlines(part, 0, begin, end, spec.z, 0, spec.nchannels, OIIO::TypeUnknown,
                                         pixels.data());
  }
  return whole;
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

Made made(const std::string& path) {
  return made_of(opened(path)->spec());
}

Made made_whole(const std::string& path) {
  const auto input = opened(path);
  Made made = made_of(input->spec());
  for (int part = 0; input->seek_subimage(part, 0); ++part) {
    if (!ends_whole(path, input->format_name(), part)) throw std::runtime_error(path + ": " + cut_text);
    if (!decodes(*input, part)) throw std::runtime_error(path + ": " + input->geterror());
  }
  return made;
}

}  // namespace host::files
