#include "host/files/container.h"

#include "host/files/exr/part.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <vector>

namespace host::files {
namespace {

using Depth = OutputFile::Depth;
using Names = std::vector<std::string>;

std::string name_of(Depth depth) {
  constexpr const char* names[] = {"auto", "half", "float", "8", "16"};
  return names[static_cast<size_t>(depth)];
}

Names depths_of(Container container) {
  if (container == Container::exr) return {"auto", "half", "float"};
  return container == Container::png ? Names{"auto", "8", "16"} : Names{"auto", "8", "16", "float"};
}

Names compressions_of(Container container, const OutputFile& file) {
  if (container == Container::exr) return {exr::codec_names.begin(), exr::codec_names.end()};
  if (container == Container::png) return {"zip", "default", "filtered", "huffman", "rle", "fixed"};
  Names names = {"none", "lzw", "zip", "deflate", "packbits"};
  if (file.depth == Depth::integer8 && !file.alpha) names.emplace_back("jpeg");
  return names;
}

// "zip:9", "dwaa:200": how hard to press, where there is something to choose.
bool is_level(std::string_view name, std::string_view text) {
  if (name == "zip" || name == "zips") return text.size() == 1 && text[0] >= '1' && text[0] <= '9';
  if (name != "dwaa" && name != "dwab") return false;
  double level = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), level);
  return error == std::errc() && end == text.data() + text.size() && level >= 0 && level <= 100000;
}

bool has(const Names& names, std::string_view wanted) {
  const size_t colon = wanted.find(':');
  const std::string_view name = wanted.substr(0, colon);
  if (std::find(names.begin(), names.end(), name) == names.end()) return false;
  return colon == std::string_view::npos || is_level(name, wanted.substr(colon + 1));
}

std::string refusal(const char* knob, const std::string& path, const std::string& wanted,
                    const Names& names) {
  std::string text = "knob \"" + std::string(knob) +
                     "\": " + std::filesystem::path(path).extension().string() + " files have no \"" +
                     wanted + "\"; they have ";
  for (const std::string& name : names) text += (name == names[0] ? "\"" : ", \"") + name + "\"";
  return text;
}

}  // namespace

Container container_of(const std::string& path) {
  std::string ending = std::filesystem::path(path).extension().string();
  for (char& c : ending) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  if (ending == ".exr") return Container::exr;
  if (ending == ".png") return Container::png;
  return ending == ".tif" || ending == ".tiff" ? Container::tiff : Container::unknown;
}

OIIO::TypeDesc stored_type(Container container, Depth depth) {
  switch (depth) {
    case Depth::half:
      return OIIO::TypeHalf;
    case Depth::float32:
      return OIIO::TypeFloat;
    case Depth::integer8:
      return OIIO::TypeUInt8;
    case Depth::integer16:
      return OIIO::TypeUInt16;
    case Depth::automatic:
      break;
  }
  if (container == Container::exr) return OIIO::TypeHalf;
  return container == Container::png ? OIIO::TypeUInt8 : OIIO::TypeUInt16;
}

bool is_srgb(const OutputFile& file) {
  using Color = OutputFile::Color;
  return file.color == Color::srgb ||
         (file.color == Color::automatic && container_of(file.path) == Container::png);
}

std::string unsupported_reason(const std::string& path) {
  if (container_of(path) != Container::unknown) return {};
  return "unknown image file ending (known: .exr .png .tif .tiff)";
}

std::string wrong_setting(const OutputFile& file) {
  const Container container = container_of(file.path);
  if (container == Container::unknown) return {};
  const Names depths = depths_of(container);
  if (!has(depths, name_of(file.depth))) return refusal("depth", file.path, name_of(file.depth), depths);
  const Names compressions = compressions_of(container, file);
  if (file.compression.empty() || has(compressions, file.compression)) return {};
  return refusal("compression", file.path, file.compression, compressions) +
         R"(; "zip:1" (fast) to "zip:9" (small) choose how hard it packs)";
}

}  // namespace host::files
