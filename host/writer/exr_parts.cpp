#include "host/writer/exr_parts.h"

#include "host/files/made.h"
#include "host/writer/container.h"
#include "host/writer/raster.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace host::writer {
namespace {

constexpr std::array<const char*, 4> plain_names = {"R", "G", "B", "A"};

// The channel that a name means, or `otherwise`.
int place_of(std::string_view name, int otherwise) {
  const size_t dot = name.rfind('.');
  std::string last(dot == std::string_view::npos ? name : name.substr(dot + 1));
  for (char& c : last) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  constexpr std::array<std::string_view, 4> words = {"red", "green", "blue", "alpha"};
  for (size_t i = 0; i < words.size(); ++i) {
    if (last == words[i] || last == words[i].substr(0, 1)) return static_cast<int>(i);
  }
  return otherwise;
}

std::string full_name(const OutputFile& file, const std::string& layer, const std::string& channel) {
  if (channel.starts_with('.')) return channel.substr(1);
  const bool stands = file.parts || layer.empty() || channel.find('.') != std::string::npos;
  return stands ? channel : layer + "." + channel;
}

// A compression that the file type has: "zip", "dwaa:45".
void set_codec(std::string_view compression, exr::Part& part) {
  const size_t colon = compression.find(':');
  const std::string_view name = compression.substr(0, colon);
  const auto& names = exr::codec_names;
  if (!name.empty())
    part.codec = static_cast<exr::Codec>(std::find(names.begin(), names.end(), name) - names.begin());
  if (colon == std::string_view::npos) return;
  const std::string_view level = compression.substr(colon + 1);
  std::from_chars(level.data(), level.data() + level.size(), part.level);
}

std::vector<files::Metadatum> attributes_of(const WriteJob& job) {
  files::Metadata metadata = metadata_of(job);
  metadata.set({"Software", "string", {}, {files::software_text(job.file.scale, job.file.digest)}});
  if (is_srgb(job.file)) {
    const files::Metadatum* const said = metadata.find("comments");
    metadata.set(
        {"comments", "string", {}, {files::with_color_note(true, said ? files::text_of(*said) : "")}});
  }
  return metadata.all();
}

// The images' windows in the file, which are never empty.
std::vector<Box> windows_of(const WriteJob& job, const std::vector<Picture>& pictures) {
  const Box format = format_box(job.extent.format);
  std::vector<Box> windows;
  Box all{};
  for (const Picture& picture : pictures) {
    const Box window =
        job.file.overscan ? picture.extent.window : intersection(picture.extent.window, format);
    windows.push_back(is_empty(window) ? Box{0, 0, 1, 1} : window);
    all = hull(all, window);
  }
  if (!job.file.parts) std::fill(windows.begin(), windows.end(), is_empty(all) ? Box{0, 0, 1, 1} : all);
  return windows;
}

exr::Part new_part(const WriteJob& job, const Box& window) {
  const Format& format = job.extent.format;
  exr::Part part;
  part.display = {0, 0, as_int(format.width), as_int(format.height)};
  part.data = {as_int(window[0]), as_int(format.height - window[3]), as_int(box_width(window)),
               as_int(box_height(window))};
  part.pixel_aspect = static_cast<float>(format.pixel_aspect);
  part.attributes = attributes_of(job);
  set_codec(job.file.compression, part);
  return part;
}

// Colour is encoded where it is one: in the main image, and in layers whose alpha says what it covers.
void add_channels(const WriteJob& job, size_t layer, const Picture& picture, const Box& window,
                  std::vector<float>& storage, exr::Part& part) {
  using Depth = OutputFile::Depth;
  const std::vector<NamedChannel> channels = channels_of(job.file, layer, picture.coverage);
  const bool alpha = std::any_of(channels.begin(), channels.end(),
                                 [](const NamedChannel& channel) { return channel.place == 3; });
  const bool srgb = is_srgb(job.file) && (layer == 0 || picture.coverage);
  const Raster raster = raster_of(picture, window, alpha ? 4 : 3, srgb, storage);
  if (srgb) encode_colour(storage, raster.channels, true, true, picture.coverage);
  const Depth depth = layer_at(job.file, layer).depth.value_or(job.file.depth);
  const exr::Type type = depth == Depth::float32 ? exr::Type::real : exr::Type::half;
  for (const NamedChannel& channel : channels)
    part.channels.push_back({channel.name, type, raster.first + channel.place, raster.pixel, raster.row});
}

void sort_channels(exr::Part& part) {
  const auto before = [](const exr::Channel& a, const exr::Channel& b) { return a.name < b.name; };
  std::sort(part.channels.begin(), part.channels.end(), before);
}

}  // namespace

const OutputFile::Layer& layer_at(const OutputFile& file, size_t layer) {
  static const OutputFile::Layer main_image;
  return file.layers.empty() ? main_image : file.layers.at(layer);
}

std::vector<NamedChannel> channels_of(const OutputFile& file, size_t layer, bool coverage) {
  const OutputFile::Layer& of = layer_at(file, layer);
  std::vector<NamedChannel> channels;
  const bool alpha = file.alpha && (coverage || of.name.empty());
  for (size_t i = 0; of.channels.empty() && i < (alpha ? 4U : 3U); ++i)
    channels.push_back({full_name(file, of.name, plain_names[i]), static_cast<int>(i)});
  for (size_t i = 0; i < of.channels.size(); ++i)
    channels.push_back(
        {full_name(file, of.name, of.channels[i]), place_of(of.channels[i], static_cast<int>(i))});
  return channels;
}

files::Metadata metadata_of(const WriteJob& job) {
  files::Metadata all = job.metadata ? *job.metadata : files::Metadata();
  for (const files::Metadatum& each : job.file.metadata.all()) all.set(each);
  return all;
}

std::vector<exr::Part> exr_parts(const WriteJob& job, std::vector<std::vector<float>>& storage) {
  std::vector<Picture> pictures = {{job.extent, job.rgba, job.coverage}};
  pictures.insert(pictures.end(), job.further.begin(), job.further.end());
  if (storage.size() < pictures.size()) storage.resize(pictures.size());
  const std::vector<Box> windows = windows_of(job, pictures);
  std::vector<exr::Part> parts;
  for (size_t i = 0; i < pictures.size(); ++i) {
    if (i == 0 || job.file.parts) parts.push_back(new_part(job, windows[i]));
    const std::string& name = layer_at(job.file, i).name;
    if (job.file.parts) parts.back().name = name.empty() ? "rgba" : name;
    add_channels(job, i, pictures[i], windows[i], storage[i], parts.back());
  }
  for (exr::Part& part : parts) sort_channels(part);
  return parts;
}

}  // namespace host::writer
