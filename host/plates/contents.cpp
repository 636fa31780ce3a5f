#include "host/plates/contents.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <map>
#include <utility>

namespace host::plates {
namespace {

using NamedChannels = std::vector<std::pair<int, std::string>>;  // index in the file, name in the layer

constexpr size_t alpha = 3;

Extent extent_of(const PartInfo& part) {
  const FileWindow& data = part.data;
  const FileWindow& display = part.display;
  Extent extent;
  extent.format = {display.width, display.height, part.pixel_aspect};
  const int64_t x0 = data.x - display.x;
  const int64_t y1 = display.y + display.height - data.y;
  extent.window = {x0, y1 - data.height, x0 + data.width, y1};
  return extent;
}

std::string lower(std::string_view text) {
  std::string result(text);
  for (char& each : result) each = static_cast<char>(std::tolower(static_cast<unsigned char>(each)));
  return result;
}

// Which of R, G, B, A a channel name means; -1 when it says nothing.
int position_of(std::string_view channel) {
  const std::string name = lower(channel);
  constexpr std::array<std::array<const char*, 4>, 4> names = {{{"r", "red", "x", "u"},
                                                                {"g", "green", "y", "v"},
                                                                {"b", "blue", "z", nullptr},
                                                                {"a", "alpha", nullptr, nullptr}}};
  for (size_t position = 0; position < names.size(); ++position) {
    for (const char* each : names[position]) {
      if (each && name == each) return static_cast<int>(position);
    }
  }
  return -1;
}

// The layer that a channel belongs to within its part: what stands before its last dot; else "", the
// part's own, for the names of colour and alpha, or a layer of the channel's name.
std::string layer_of(const std::string& channel) {
  const size_t dot = channel.rfind('.');
  if (dot != std::string::npos) return channel.substr(0, dot);
  const std::string name = lower(channel);
  for (const char* colour : {"r", "g", "b", "a", "y", "red", "green", "blue", "alpha"}) {
    if (name == colour) return "";
  }
  return name.rfind("channel", 0) == 0 || name == "i" ? "" : channel;
}

std::string_view channel_suffix(std::string_view channel) {
  const size_t dot = channel.rfind('.');
  return dot == std::string_view::npos ? channel : channel.substr(dot + 1);
}

// Sorts a layer's channels into R, G, B, A. One alone is grey; an alpha alone is a matte, white where
// it covers. Only a channel of that name becomes alpha.
std::array<int, 4> arrange(const NamedChannels& channels) {
  std::array<int, 4> places = {-1, -1, -1, -1};
  // Colours first: a depth beside them is no blue.
  for (const bool colours : {true, false}) {
    for (const auto& [index, name] : channels) {
      const int position = position_of(name);
      const bool vector = std::string_view("xyzuv").find(lower(name)) != std::string_view::npos;
      if (position >= 0 && vector != colours && places[static_cast<size_t>(position)] < 0)
        places[static_cast<size_t>(position)] = index;
    }
  }
  const size_t others = channels.size() - (places[alpha] < 0 ? 0U : 1U);
  if (others <= 1) {
    const bool leads = others == 1 && channels[0].first != places[alpha];
    const int grey = leads ? channels[0].first : channels.back().first;
    return {grey, grey, grey, places[alpha]};
  }
  for (const auto& [index, name] : channels) {
    if (std::find(places.begin(), places.end(), index) != places.end()) continue;
    const auto gap = std::find(places.begin(), places.begin() + alpha, -1);
    if (gap != places.begin() + alpha) *gap = index;
  }
  return places;
}

// Whether a layer holds the ranks of a cryptomatte: ids and their shares under the names of colours.
bool is_cryptomatte(const files::MetadataPtr& metadata, std::string_view layer) {
  constexpr std::string_view begin = "cryptomatte/";
  constexpr std::string_view end = "/name";
  if (!metadata) return false;
  return std::any_of(metadata->all().begin(), metadata->all().end(), [&](const files::Metadatum& entry) {
    if (!entry.name.starts_with(begin) || !entry.name.ends_with(end) || entry.type != "string") return false;
    const std::string& rank = entry.texts[0];
    return !rank.empty() && layer.starts_with(rank) &&
           layer.find_first_not_of("0123456789", rank.size()) == std::string_view::npos;
  });
}

}  // namespace

void add_part(const PartInfo& info, int subimage, bool exr, Contents& contents) {
  const std::string part = info.name.empty() ? "part" + std::to_string(subimage) : info.name;
  // EXR has whole numbers for ids alone; elsewhere they are a picture's steps from 0 to 1.
  const auto whole = [&](int channel) {
    return exr && info.channels[static_cast<size_t>(channel)].type == "uint32";
  };
  std::map<std::string, NamedChannels> groups;
  for (int i = 0; i < static_cast<int>(info.channels.size()); ++i) {
    const std::string& name = info.channels[static_cast<size_t>(i)].name;
    contents.channels.push_back({name, part, subimage, i, whole(i)});
    groups[layer_of(name)].emplace_back(i, channel_suffix(name));
  }
  const size_t first = contents.layers.size();
  for (const auto& [name, channels] : groups) {
    Layer layer;
    layer.names = {name, part};
    layer.subimage = subimage;
    layer.extent = extent_of(info);
    layer.channels = arrange(channels);
    layer.ids = std::any_of(channels.begin(), channels.end(),
                            [&](const auto& channel) { return whole(channel.first); });
    layer.coverage = channels.size() > 1 && layer.channels[alpha] >= 0 && !layer.ids &&
                     !is_cryptomatte(info.metadata, name);
    layer.deep = info.deep;
    contents.layers.push_back(std::move(layer));
  }
  // A part without colour of its own is led by its first channels.
  const auto begin = contents.layers.begin() + static_cast<std::ptrdiff_t>(first);
  const auto lead = std::min_element(begin, contents.layers.end(), [](const Layer& a, const Layer& b) {
    return std::pair(!a.names[0].empty(), a.channels[0]) < std::pair(!b.names[0].empty(), b.channels[0]);
  });
  if (lead != contents.layers.end()) std::rotate(begin, lead, lead + 1);
}

void name_layers(int parts, Contents& contents) {
  if (contents.layers.empty()) return;
  int last = -1;
  for (Layer& layer : contents.layers) {
    const std::string name = layer.names[0];
    const std::string part = layer.names[1];
    const bool leads = std::exchange(last, layer.subimage) != layer.subimage;
    layer.names.clear();
    if (leads && parts > 1) layer.names.push_back(part);
    if (parts == 1) layer.names.push_back(name);
    if (!name.empty() && !part.empty()) layer.names.push_back(std::string(part).append(".").append(name));
    if (parts > 1 && !name.empty()) layer.names.push_back(name);
    if (leads && parts == 1 && !part.empty()) layer.names.push_back(part);
  }
  const auto own = [&](const Layer& layer) { return parts > 1 && layer.names.size() == 1; };
  const auto found = std::find_if(contents.layers.begin(), contents.layers.end(), own);
  const auto main = found == contents.layers.end() ? contents.layers.begin() : found;
  std::rotate(contents.layers.begin(), main, main + 1);
}

}  // namespace host::plates
