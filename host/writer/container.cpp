#include "host/writer/container.h"

#include "host/writer/exr/part.h"
#include "host/writer/exr_parts.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <set>
#include <string_view>
#include <system_error>
#include <vector>

namespace host::writer {
namespace {

using Depth = OutputFile::Depth;
using Names = std::vector<std::string>;

// What files of a type have, by the words of the knobs.
struct Holds {
  Container container;
  Names endings, depths, channels, compressions;
};

const std::vector<Holds>& all_types() {
  static const std::vector<Holds> all = {
      {Container::exr,
       {".exr"},
       {"auto", "half", "float"},
       {"rgba", "rgb"},
       {exr::codec_names.begin(), exr::codec_names.end()}},
      {Container::png,
       {".png"},
       {"auto", "8", "16"},
       {"rgba", "rgb"},
       {"zip", "default", "filtered", "huffman", "rle", "fixed"}},
      {Container::tiff,
       {".tif", ".tiff"},
       {"auto", "8", "16", "float"},
       {"rgba", "rgb"},
       {"none", "lzw", "zip", "deflate", "packbits"}},
      {Container::jpeg, {".jpg", ".jpeg"}, {"auto", "8"}, {"rgb"}, {}},
      {Container::dpx, {".dpx"}, {"auto", "8", "10", "12", "16"}, {"rgba", "rgb"}, {}},
  };
  return all;
}

const Holds& type_of(Container container) {
  const auto& all = all_types();
  return *std::find_if(all.begin(), all.end(),
                       [container](const Holds& each) { return each.container == container; });
}

std::string name_of(Depth depth) {
  constexpr const char* names[] = {"auto", "half", "float", "8", "10", "12", "16"};
  return names[static_cast<size_t>(depth)];
}

Names compressions_of(Container container, const OutputFile& file) {
  Names names = type_of(container).compressions;
  const bool jpeg = container == Container::tiff && file.depth == Depth::integer8 && !file.alpha;
  if (jpeg) names.emplace_back("jpeg");
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

std::string listed(const Names& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "\"" : ", \"") + name + "\"";
  return text.empty() ? "none" : text;
}

std::string ending_of(const std::string& path) {
  return std::filesystem::path(path).extension().string();
}

std::string refusal(const char* knob, const std::string& path, const std::string& wanted,
                    const Names& names) {
  return "knob \"" + std::string(knob) + "\": " + ending_of(path) + " files have no \"" + wanted +
         "\"; they have " + listed(names);
}

// What of a file's layers its type does not have, or what cannot be.
std::string wrong_layers(const OutputFile& file, Container container) {
  const std::string have_one =
      ending_of(file.path) + " files have one image; .exr files have layers and parts";
  const bool exr = container == Container::exr;
  if (!exr && file.parts) return "knob \"parts\": " + have_one;
  const Names depths = type_of(container).depths;
  std::set<std::string> taken;
  for (size_t i = 0; i < std::max<size_t>(1, file.layers.size()); ++i) {
    const OutputFile::Layer& layer = layer_at(file, i);
    if (!exr && !layer.name.empty()) return "input \"" + layer.name + "\": " + have_one;
    if (!exr && !layer.channels.empty())
      return refusal("channels", file.path, layer.channels[0], type_of(container).channels);
    if (layer.depth && !has(depths, name_of(*layer.depth)))
      return refusal("depth", file.path, name_of(*layer.depth), depths);
    if (file.parts) taken.clear();
    for (const NamedChannel& channel : channels_of(file, i, true)) {
      if (channel.name.empty()) return "knob \"channels\": a channel without a name";
      if (taken.insert(channel.name).second) continue;
      return "knob \"channels\": two channels are called \"" + channel.name + "\"";
    }
  }
  return {};
}

}  // namespace

Container container_of(const std::string& path) {
  std::string ending = std::filesystem::path(path).extension().string();
  for (char& c : ending) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  for (const Holds& type : all_types())
    if (std::find(type.endings.begin(), type.endings.end(), ending) != type.endings.end())
      return type.container;
  return Container::unknown;
}

StoredType stored_type(Container container, Depth depth) {
  constexpr StoredType half = {2, true}, float32 = {4, true}, integer8 = {1, false}, integer16 = {2, false};
  switch (depth) {
    case Depth::half:
      return half;
    case Depth::float32:
      return float32;
    case Depth::integer8:
      return integer8;
    case Depth::integer10:
    case Depth::integer12:
    case Depth::integer16:
      return integer16;
    case Depth::automatic:
      break;
  }
  if (container == Container::exr) return half;
  return container == Container::png || container == Container::jpeg ? integer8 : integer16;
}

int stored_bits(Container container, Depth depth) {
  if (depth == Depth::integer10 || (depth == Depth::automatic && container == Container::dpx)) return 10;
  if (depth == Depth::integer12) return 12;
  return stored_type(container, depth).bytes * 8;
}

bool packed_by_all(const std::string& path) {
  return container_of(path) == Container::exr;
}

bool is_srgb(const OutputFile& file) {
  using Color = OutputFile::Color;
  const Container container = container_of(file.path);
  const bool shown = container == Container::png || container == Container::jpeg;
  return file.color == Color::srgb || (file.color == Color::automatic && shown);
}

std::string unsupported_reason(const std::string& path) {
  if (container_of(path) != Container::unknown) return {};
  std::string known;
  for (const Holds& type : all_types())
    for (const std::string& ending : type.endings) known += " " + ending;
  return "unknown image file ending (known:" + known + ")";
}

std::string wrong_setting(const OutputFile& file) {
  const Container container = container_of(file.path);
  if (container == Container::unknown) return {};
  const Names& depths = type_of(container).depths;
  if (!has(depths, name_of(file.depth))) return refusal("depth", file.path, name_of(file.depth), depths);
  const std::string channels = file.alpha ? "rgba" : "rgb";
  if (!has(type_of(container).channels, channels))
    return refusal("channels", file.path, channels, type_of(container).channels);
  if (std::string wrong = wrong_layers(file, container); !wrong.empty()) return wrong;
  const Names compressions = compressions_of(container, file);
  if (file.compression.empty() || has(compressions, file.compression)) return {};
  return refusal("compression", file.path, file.compression, compressions) +
         (compressions.empty() ? "" : R"(; "zip:1" (fast) to "zip:9" (small) choose how hard it packs)");
}

}  // namespace host::writer
