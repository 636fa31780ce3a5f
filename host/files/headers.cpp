#include "host/files/headers.h"

#include "host/files/pattern.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <system_error>

#include <OpenImageIO/imageio.h>

namespace host::files {
namespace {

namespace fs = std::filesystem;

constexpr int most_subimages = 1000;
constexpr size_t most_headers = 4096;

Extent extent_of(const OIIO::ImageSpec& spec) {
  Extent extent;
  extent.format.width = spec.full_width;
  extent.format.height = spec.full_height;
  const double aspect = spec.get_float_attribute("PixelAspectRatio", 1.0F);
  extent.format.pixel_aspect = aspect > 0 ? aspect : 1.0;
  const int64_t x0 = int64_t{spec.x} - spec.full_x;
  const int64_t y1 = int64_t{spec.full_y} + spec.full_height - spec.y;
  extent.window = {x0, y1 - spec.height, x0 + spec.width, y1};
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

// The layer that a channel belongs to: what stands before its last dot; else the image's own layer
// for the names of colour and alpha, or a layer of the channel's name.
std::string layer_of(const std::string& channel, const std::string& own) {
  const size_t dot = channel.rfind('.');
  if (dot != std::string::npos) return channel.substr(0, dot);
  const std::string name = lower(channel);
  for (const char* colour : {"r", "g", "b", "a", "y", "red", "green", "blue", "alpha"}) {
    if (name == colour) return own;
  }
  return name.rfind("channel", 0) == 0 || name == "i" ? own : channel;
}

std::string_view channel_suffix(const std::string& channel) {
  const size_t dot = channel.rfind('.');
  return dot == std::string::npos ? std::string_view(channel) : std::string_view(channel).substr(dot + 1);
}

using NamedChannels = std::vector<std::pair<int, std::string>>;  // index in the file, name in the layer

// Sorts a layer's channels into R, G, B, A. One alone is grey; an alpha alone is a matte, white where
// it covers. Only a channel of that name becomes alpha.
std::array<int, 4> arrange(const NamedChannels& channels) {
  constexpr int alpha = 3;
  std::array<int, 4> places = {-1, -1, -1, -1};
  for (const auto& [index, name] : channels) {
    const int position = position_of(name);
    if (position >= 0 && places[static_cast<size_t>(position)] < 0)
      places[static_cast<size_t>(position)] = index;
  }
  const auto colours = channels.size() - (places[alpha] < 0 ? 0U : 1U);
  if (colours <= 1) {
    const bool first_is_grey = colours == 1 && channels[0].first != places[alpha];
    const int grey = first_is_grey ? channels[0].first : channels.back().first;
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
bool is_cryptomatte(const OIIO::ImageSpec& spec, std::string_view layer) {
  constexpr std::string_view begin = "cryptomatte/";
  constexpr std::string_view end = "/name";
  for (const auto& attribute : spec.extra_attribs) {
    const std::string_view name(attribute.name().c_str(), attribute.name().size());
    if (!name.starts_with(begin) || !name.ends_with(end)) continue;
    const std::string rank = attribute.get_string();
    if (!rank.empty() && layer.starts_with(rank) &&
        layer.find_first_not_of("0123456789", rank.size()) == std::string_view::npos)
      return true;
  }
  return false;
}

// EXR has whole numbers for ids alone.
bool is_coverage(const OIIO::ImageSpec& spec, std::string_view layer, int alpha, bool exr) {
  if (alpha < 0 || is_cryptomatte(spec, layer)) return false;
  return !exr || spec.channelformat(alpha).basetype != OIIO::TypeDesc::UINT32;
}

void add_layers(const OIIO::ImageSpec& spec, int subimage, bool exr, std::vector<Layer>& layers) {
  std::string own;
  if (subimage > 0) own = spec.get_string_attribute("oiio:subimagename", "part" + std::to_string(subimage));
  std::map<std::string, NamedChannels> groups;
  for (int i = 0; i < spec.nchannels; ++i) {
    const std::string& channel = spec.channelnames[static_cast<size_t>(i)];
    groups[layer_of(channel, own)].emplace_back(i, channel_suffix(channel));
  }
  for (const auto& [name, channels] : groups) {
    const bool taken = std::any_of(layers.begin(), layers.end(),
                                   [&name = name](const Layer& layer) { return layer.name == name; });
    if (taken) continue;
    const std::array<int, 4> places = arrange(channels);
    layers.push_back({name, subimage, extent_of(spec), places, is_coverage(spec, name, places[3], exr)});
  }
}

bool is_plain(const OIIO::ImageSpec& spec) {
  const Extent extent = extent_of(spec);
  return spec.channelnames == std::vector<std::string>{"R", "G", "B", "A"} && !spec.deep && spec.depth <= 1 &&
         extent.window == format_box(extent.format);
}

// Size and date, without opening the file.
void read_attributes(const std::string& path, Header& header) {
  std::error_code error;
  const auto size = fs::file_size(path, error);
  if (!error) header.size = static_cast<int64_t>(size);
  const auto written = fs::last_write_time(path, error);
  if (error) return;
  const auto since_1970 = std::chrono::file_clock::to_sys(written).time_since_epoch();
  header.mtime_ns = std::chrono::duration_cast<std::chrono::nanoseconds>(since_1970).count();
}

Header read_header(const std::string& path) {
  Header header;
  std::error_code error;
  if (!fs::is_regular_file(path, error)) {
    header.error = path + (fs::exists(path, error) ? ": is no file" : ": no such file");
    return header;
  }
  read_attributes(path, header);
  const auto input = OIIO::ImageInput::open(path);
  if (!input) {
    header.error = path + ": " + OIIO::geterror();
    return header;
  }
  const std::string space = input->spec().get_string_attribute("oiio:ColorSpace");
  header.srgb = space == "sRGB";
  const bool exr = std::string_view(input->format_name()) == "openexr";
  int subimages = 0;
  for (; subimages < most_subimages && input->seek_subimage(subimages, 0); ++subimages) {
    add_layers(input->spec(), subimages, exr, header.layers);
  }
  (void)input->geterror();
  if (header.layers.empty()) {
    header.error = path + ": has no channels";
    return header;
  }
  std::sort(header.layers.begin(), header.layers.end(),
            [](const Layer& a, const Layer& b) { return a.name < b.name; });
  // A file of named layers alone shows the first of its first part.
  if (!header.layers[0].name.empty()) {
    auto main =
        *std::min_element(header.layers.begin(), header.layers.end(), [](const Layer& a, const Layer& b) {
          return std::pair(a.subimage, a.channels[0]) < std::pair(b.subimage, b.channels[0]);
        });
    main.name.clear();
    header.layers.insert(header.layers.begin(), main);
  }
  header.plain =
      subimages == 1 && header.layers.size() == 1 && input->seek_subimage(0, 0) && is_plain(input->spec());
  return header;
}

// The frame number that turns the pattern into this file name.
std::optional<int64_t> frame_of(const std::string& pattern, const std::string& name) {
  // Every run of digits is a candidate; the one that leads back to the name is the frame.
  for (size_t begin = 0; begin < name.size(); ++begin) {
    const bool digit = name[begin] >= '0' && name[begin] <= '9';
    const bool starts = begin == 0 || name[begin - 1] < '0' || name[begin - 1] > '9';
    if (!(digit && starts) && name[begin] != '-') continue;
    int64_t frame = 0;
    const auto result = std::from_chars(name.data() + begin, name.data() + name.size(), frame);
    if (result.ec == std::errc() && frame_path(pattern, frame) == name) return frame;
  }
  return std::nullopt;
}

}  // namespace

const Layer* Header::find(std::string_view layer) const {
  for (const Layer& each : layers) {
    if (each.name == layer) return &each;
  }
  return nullptr;
}

const Header& Headers::get(const std::string& path) {
  const auto found = known_.find(path);
  if (found != known_.end()) return found->second;
  if (order_.size() >= most_headers) {
    const auto half = order_.begin() + static_cast<std::ptrdiff_t>(most_headers / 2);
    for (auto oldest = order_.begin(); oldest != half; ++oldest) known_.erase(*oldest);
    order_.erase(order_.begin(), half);
  }
  order_.push_back(path);
  return known_.emplace(path, read_header(path)).first->second;
}

std::optional<std::pair<int64_t, int64_t>> Headers::frames_on_disk(const std::string& pattern) {
  const auto [place, added] = ranges_.try_emplace(pattern);
  if (!added) return place->second;
  const fs::path whole(pattern);
  const std::string name_pattern = whole.filename().string();
  std::error_code error;
  const fs::path folder = whole.has_parent_path() ? whole.parent_path() : fs::path(".");
  for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
    const auto frame = frame_of(name_pattern, at->path().filename().string());
    if (!frame) continue;
    if (!place->second) place->second.emplace(*frame, *frame);
    place->second->first = std::min(place->second->first, *frame);
    place->second->second = std::max(place->second->second, *frame);
  }
  return place->second;
}

}  // namespace host::files
