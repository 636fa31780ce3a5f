#include "host/files/made.h"

#include <array>
#include <charconv>
#include <stdexcept>
#include <string_view>

#include <OpenImageIO/imageio.h>

namespace host::files {
namespace {

constexpr std::string_view scale_mark = "quorvel, scale ";

double scale_of(std::string_view software) {
  if (!software.starts_with(scale_mark)) return 1;
  software.remove_prefix(scale_mark.size());
  double scale = 1;
  std::from_chars(software.data(), software.data() + software.size(), scale);
  return scale;
}

}  // namespace

std::string software_text(double scale) {
  if (scale == 1) return "quorvel";
  std::array<char, 32> digits{};  // enough for the shortest text of any double
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), scale).ptr;
  return std::string(scale_mark) + std::string(digits.data(), end);
}

const char* color_note(bool srgb) {
  return srgb ? "colour: sRGB" : "colour: linear";
}

Made made(const std::string& path) {
  const auto input = OIIO::ImageInput::open(path);
  if (!input) throw std::runtime_error(path + ": " + OIIO::geterror());
  const OIIO::ImageSpec spec = input->spec();
  return {spec.full_width, spec.full_height, scale_of(spec.get_string_attribute("Software"))};
}

}  // namespace host::files
