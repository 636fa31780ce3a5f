#include "host/files/metadata.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <utility>

#include <fnmatch.h>

namespace host::files {
namespace {

struct Layout {
  std::string_view type, numbers;
};

constexpr std::array<Layout, 21> layouts = {{{"box2f", "ffff"},
                                             {"box2i", "iiii"},
                                             {"chromaticities", "ffffffff"},
                                             {"double", "d"},
                                             {"envmap", "b"},
                                             {"float", "f"},
                                             {"floatvector", "*f"},
                                             {"int", "i"},
                                             {"keycode", "iiiiiii"},
                                             {"m33d", "ddddddddd"},
                                             {"m33f", "fffffffff"},
                                             {"m44d", "dddddddddddddddd"},
                                             {"m44f", "ffffffffffffffff"},
                                             {"rational", "iu"},
                                             {"timecode", "uu"},
                                             {"v2d", "dd"},
                                             {"v2f", "ff"},
                                             {"v2i", "ii"},
                                             {"v3d", "ddd"},
                                             {"v3f", "fff"},
                                             {"v3i", "iii"}}};

constexpr std::array<Layout, 22> names = {{{"altitude", "float"},
                                           {"aperture", "float"},
                                           {"capDate", "string"},
                                           {"chromaticities", "chromaticities"},
                                           {"comments", "string"},
                                           {"envmap", "envmap"},
                                           {"expTime", "float"},
                                           {"focus", "float"},
                                           {"framesPerSecond", "rational"},
                                           {"isoSpeed", "float"},
                                           {"keyCode", "keycode"},
                                           {"latitude", "float"},
                                           {"longitude", "float"},
                                           {"owner", "string"},
                                           {"screenWindowCenter", "v2f"},
                                           {"screenWindowWidth", "float"},
                                           {"timeCode", "timecode"},
                                           {"utcOffset", "float"},
                                           {"whiteLuminance", "float"},
                                           {"worldToCamera", "m44f"},
                                           {"worldToNDC", "m44f"},
                                           {"xDensity", "float"}}};

template <size_t n>
const Layout* find_in(const std::array<Layout, n>& table, std::string_view key) {
  const auto* const found =
      std::find_if(table.begin(), table.end(), [key](const Layout& each) { return each.type == key; });
  return found == table.end() ? nullptr : found;
}

bool fits(double value, char kind) {
  const auto whole_in = [value](double least, double most) {
    return value == std::floor(value) && value >= least && value <= most;
  };
  if (kind == 'i') return whole_in(std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max());
  if (kind == 'u') return whole_in(0, std::numeric_limits<uint32_t>::max());
  if (kind == 'b') return whole_in(0, std::numeric_limits<uint8_t>::max());
  return kind == 'd' || !std::isfinite(value) || std::abs(value) <= std::numeric_limits<float>::max();
}

bool comes_before(const Metadatum& entry, std::string_view name) {
  return entry.name < name;
}

}  // namespace

void Metadata::set(Metadatum entry) {
  const auto place = std::lower_bound(entries_.begin(), entries_.end(), entry.name, comes_before);
  if (place != entries_.end() && place->name == entry.name) {
    *place = std::move(entry);
  } else {
    entries_.insert(place, std::move(entry));
  }
}

void Metadata::drop(const std::string& pattern) {
  std::erase_if(entries_, [&pattern](const Metadatum& each) {
    return each.name == pattern || ::fnmatch(pattern.c_str(), each.name.c_str(), 0) == 0;
  });
}

const Metadatum* Metadata::find(std::string_view name) const {
  const auto place = std::lower_bound(entries_.begin(), entries_.end(), name, comes_before);
  return place != entries_.end() && place->name == name ? &*place : nullptr;
}

uint64_t Metadata::bytes() const {
  uint64_t sum = 0;
  for (const Metadatum& each : entries_) {
    sum += sizeof each + each.name.size() + each.type.size() + each.numbers.size() * sizeof(double);
    for (const std::string& text : each.texts) sum += sizeof(std::string) + text.size();
  }
  return sum;
}

bool is_storage(std::string_view name) {
  // Of OpenEXR, and of other files by their readers.
  constexpr std::array<std::string_view, 22> of_files = {"channels",
                                                         "chunkCount",
                                                         "compression",
                                                         "dataWindow",
                                                         "deepImageState",
                                                         "displayWindow",
                                                         "lineOrder",
                                                         "maxSamplesPerPixel",
                                                         "multiView",
                                                         "dwaCompressionLevel",
                                                         "name",
                                                         "preview",
                                                         "pixelAspectRatio",
                                                         "tiles",
                                                         "type",
                                                         "version",
                                                         "view",
                                                         "Software",
                                                         "planarconfig",
                                                         "Orientation",
                                                         "PixelAspectRatio",
                                                         "CompressionQuality"};
  constexpr std::array<std::string_view, 15> of_dpx = {
      "BlackLevel",       "Colorimetric", "DittoKey",        "EncryptKey", "EndOfImagePadding",
      "EndOfLinePadding", "HighData",     "ImageDescriptor", "LowData",    "Packing",
      "Signal",           "TimeCode",     "Transfer",        "Version",    "WhiteLevel"};
  constexpr std::string_view dpx = "dpx:";
  if (name.starts_with(dpx) &&
      std::find(of_dpx.begin(), of_dpx.end(), name.substr(dpx.size())) != of_dpx.end())
    return true;
  const auto begins = [name](std::string_view front) { return name.starts_with(front); };
  return std::find(of_files.begin(), of_files.end(), name) != of_files.end() || begins("oiio:") ||
         begins("openexr:") || begins("ICCProfile") || begins("tiff:") || begins("jpeg:") || begins("png:");
}

std::optional<std::string_view> numbers_of_type(std::string_view type) {
  const Layout* const found = find_in(layouts, type);
  return found ? std::optional(found->numbers) : std::nullopt;
}

std::string_view type_of_name(std::string_view name) {
  const Layout* const found = find_in(names, name);
  return found ? found->numbers : "";
}

bool is_sound(const Metadatum& entry) {
  const auto kinds = numbers_of_type(entry.type);
  if (!kinds) return entry.numbers.empty() && (entry.type == "stringvector" || entry.texts.size() == 1);
  const bool any = kinds->front() == '*';
  if (!any && entry.numbers.size() != kinds->size()) return false;
  for (size_t i = 0; i < entry.numbers.size(); ++i)
    if (!fits(entry.numbers[i], (*kinds)[any ? 1 : i])) return false;
  return true;
}

}  // namespace host::files
