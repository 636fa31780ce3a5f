#include "host/report/image_info.h"

#include "host/node/expectation.h"
#include "host/plates/made.h"
#include "host/shot/frames.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>

namespace host::report {
namespace {

using Json = nlohmann::ordered_json;
using plates::FileWindow;
using plates::PartInfo;

std::string window_text(const FileWindow& window) {
  std::string text = std::to_string(window.width) + " x " + std::to_string(window.height);
  if (window.x != 0 || window.y != 0) {
    text += " at (" + std::to_string(window.x) + ", " + std::to_string(window.y) + ")";
  }
  return text;
}

Json window_json(const FileWindow& window) {
  return {{"x", window.x}, {"y", window.y}, {"width", window.width}, {"height", window.height}};
}

// Neighbours of one type together: "R G B A half, Z float".
std::string channels_text(const std::vector<PartInfo::Channel>& channels) {
  std::string text;
  for (size_t i = 0; i < channels.size(); ++i) {
    text += (text.empty() ? "" : " ") + channels[i].name;
    const bool last = i + 1 == channels.size();
    if (last || channels[i + 1].type != channels[i].type) text += " " + channels[i].type + (last ? "" : ",");
  }
  return text;
}

Json metadata_json(const files::MetadataPtr& metadata) {
  Json json = Json::object();
  if (!metadata) return json;
  for (const files::Metadatum& each : metadata->all()) {
    json[each.name] = {{"type", each.type}, {"text", files::text_of(each)}};
    if (!each.numbers.empty()) json[each.name]["numbers"] = each.numbers;
  }
  return json;
}

std::string metadata_text(const files::MetadataPtr& metadata) {
  std::string text;
  if (!metadata) return text;
  size_t width = 0;
  for (const files::Metadatum& each : metadata->all()) width = std::max(width, each.name.size());
  for (const files::Metadatum& each : metadata->all()) {
    text += (text.empty() ? "    metadata  " : "              ") + each.name;
    text += std::string(width - each.name.size() + 2, ' ') + files::text_of(each) + "\n";
  }
  return text;
}

std::string part_text(const PartInfo& part, size_t index) {
  std::string text = "  part " + std::to_string(index);
  if (!part.name.empty()) text += " \"" + part.name + "\"";
  text += "\n    display   " + window_text(part.display);
  if (part.pixel_aspect != 1) text += ", pixel aspect " + node::number_text(part.pixel_aspect);
  if (part.data != part.display) text += "\n    data      " + window_text(part.data);
  text += "\n    stored    " + (part.compression.empty() ? "" : part.compression + ", ");
  text += part.tile_width > 0
              ? "tiles of " + std::to_string(part.tile_width) + " x " + std::to_string(part.tile_height)
              : "rows";
  return text + (part.deep ? ", deep" : "") + "\n    channels  " + channels_text(part.channels) + "\n";
}

Json part_json(const PartInfo& part) {
  Json channels = Json::array();
  for (const PartInfo::Channel& channel : part.channels) {
    channels.push_back({{"name", channel.name}, {"type", channel.type}});
  }
  Json json = {{"name", part.name},
               {"display_window", window_json(part.display)},
               {"data_window", window_json(part.data)},
               {"pixel_aspect", part.pixel_aspect},
               {"compression", part.compression},
               {"tiles", nullptr},
               {"deep", part.deep},
               {"channels", channels}};
  if (part.tile_width > 0) json["tiles"] = {{"width", part.tile_width}, {"height", part.tile_height}};
  return json;
}

// The digest of what it was made from, "" where it does not say.
std::string digest_of(const AskedImage& image) {
  try {
    return plates::made(image.path).digest;
  } catch (const std::runtime_error&) {
    return "";
  }
}

std::vector<std::string> channels_of(const plates::Layer& layer, const plates::Contents& contents) {
  std::vector<std::string> names;
  std::vector<int> seen;
  for (const int index : layer.channels) {
    if (index < 0 || std::find(seen.begin(), seen.end(), index) != seen.end()) continue;
    seen.push_back(index);
    for (const plates::Channel& channel : contents.channels) {
      if (channel.subimage == layer.subimage && channel.index == index) names.push_back(channel.name);
    }
  }
  return names;
}

// Frames between two that stand, of which there may be more than anybody can list one by one.
std::string gaps_text(const std::vector<int64_t>& frames) {
  std::string text;
  for (size_t i = 1; i < frames.size(); ++i) {
    const int64_t first = frames[i - 1] + 1;
    const int64_t last = frames[i] - 1;
    if (first > last) continue;
    text += (text.empty() ? "" : ",") + std::to_string(first);
    if (last > first) text += "-" + std::to_string(last);
  }
  return text;
}

}  // namespace

std::string sequence_text(const std::vector<int64_t>& frames) {
  const std::string gaps = gaps_text(frames);
  return shot::frames_text(frames) + (gaps.empty() ? "" : ", without " + gaps);
}

void add_sequence(const std::vector<int64_t>& frames, Json& json) {
  json["frames"] = shot::frames_text(frames);
  json["missing"] = gaps_text(frames);
}

std::string layer_text(const plates::Layer& layer, const plates::Contents& contents) {
  std::string text = "\"" + layer.names[0] + "\" (";
  for (const std::string& channel : channels_of(layer, contents))
    text += (text.back() == '(' ? "" : " ") + channel;
  return text + ")";
}

Json layer_json(const plates::Layer& layer, const plates::Contents& contents) {
  return {{"name", layer.names[0]},
          {"part", layer.subimage},
          {"channels", channels_of(layer, contents)},
          {"coverage", layer.coverage}};
}

std::string image_text(const AskedImage& image) {
  std::string text = image.name + "\n";
  if (!image.frames.empty()) {
    text += "  frames    " + sequence_text(image.frames) + "\n  first     " + image.path + "\n";
  }
  const plates::Header& header = *image.header;
  text += "  type      " + header.format + "\n";
  text += "  colour    " + header.color.name + " (" + header.color.why + ")\n";
  if (const std::string digest = digest_of(image); !digest.empty()) text += "  made from " + digest + "\n";
  text += "  layers    ";
  const std::string between = "\n            ";
  for (size_t i = 0; i < header.contents.layers.size(); ++i)
    text += (i == 0 ? "" : between) + layer_text(header.contents.layers[i], header.contents);
  text += "\n";
  for (size_t i = 0; i < header.parts.size(); ++i)
    text += part_text(header.parts[i], i) + metadata_text(header.parts[i].metadata);
  return text;
}

Json image_json(const AskedImage& image) {
  const plates::Header& header = *image.header;
  Json json = {{"file", image.name}, {"kind", "image"}};
  if (!image.frames.empty()) {
    json["kind"] = "sequence";
    json["first"] = image.path;
    add_sequence(image.frames, json);
  }
  if (!header.error.empty()) {
    json["error"] = header.error;
    return json;
  }
  json["type"] = header.format;
  json["color"] = {{"space", header.color.name}, {"why", header.color.why}};
  if (const std::string digest = digest_of(image); !digest.empty()) json["made_from"] = digest;
  json["layers"] = Json::array();
  for (const plates::Layer& layer : header.contents.layers)
    json["layers"].push_back(layer_json(layer, header.contents));
  json["parts"] = Json::array();
  for (size_t i = 0; i < header.parts.size(); ++i) {
    json["parts"].push_back(part_json(header.parts[i]));
    json["parts"][i]["metadata"] = metadata_json(header.parts[i].metadata);
  }
  return json;
}

}  // namespace host::report
