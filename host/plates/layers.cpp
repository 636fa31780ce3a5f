#include "host/plates/layers.h"

#include <algorithm>
#include <stdexcept>

namespace host::plates {
namespace {

constexpr size_t alpha = 3;

std::string listed(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "\"" : ", \"") + name + "\"";
  return text;
}

[[noreturn]] void fail(const std::string& text) {
  throw std::runtime_error(text);
}

const Layer& find_layer(const Contents& contents, std::string_view name) {
  if (name.empty()) return contents.layers.at(0);
  std::vector<const Layer*> meant;
  std::vector<std::string> known;
  std::vector<std::string> full;
  for (const Layer& layer : contents.layers) {
    if (!layer.names[0].empty()) known.push_back(layer.names[0]);
    if (std::find(layer.names.begin(), layer.names.end(), name) == layer.names.end()) continue;
    meant.push_back(&layer);
    full.push_back(layer.names[0]);
  }
  if (meant.size() == 1) return *meant[0];
  if (meant.size() > 1) fail("layer \"" + std::string(name) + "\" may be any of " + listed(full));
  fail("has no layer \"" + std::string(name) + "\"; it has " +
       (known.empty() ? "the main image alone" : listed(known)));
}

// In full, as no other channel of the file is called.
std::string full_name(const Channel& channel, const Contents& contents) {
  const bool parts = contents.channels.back().subimage > 0;
  return parts ? channel.part + "." + channel.name : channel.name;
}

bool is_called(const Channel& channel, const std::string& name) {
  return channel.name == name || channel.part + "." + channel.name == name;
}

const Channel& find_channel(const Contents& contents, const Layer* within, const std::string& name) {
  std::vector<const Channel*> meant;
  std::vector<std::string> known;
  std::vector<std::string> full;
  for (const Channel& channel : contents.channels) {
    if (within && channel.subimage != within->subimage) continue;
    known.push_back(full_name(channel, contents));
    bool fits = is_called(channel, name);
    for (size_t i = 0; within && i < within->names.size(); ++i) {
      fits = fits || is_called(channel, std::string(within->names[i]).append(".").append(name));
    }
    if (!fits) continue;
    meant.push_back(&channel);
    full.push_back(known.back());
  }
  if (meant.size() == 1) return *meant[0];
  if (meant.size() > 1) fail("channel \"" + name + "\" may be any of " + listed(full));
  fail("has no channel \"" + name + "\"; it has " + listed(known));
}

Layer picked(const Contents& contents, const Layer* within, const std::vector<std::string>& channels) {
  Layer result;
  result.names = {"channels"};
  for (size_t i = 0; i < channels.size() && i < result.channels.size(); ++i) {
    const Channel& channel = find_channel(contents, within, channels[i]);
    if (i > 0 && channel.subimage != result.subimage) {
      fail("channels " + listed(channels) +
           " lie in several parts; read each by a node of its own and join them with shuffle");
    }
    result.subimage = channel.subimage;
    result.channels[i] = channel.index;
    result.ids = result.ids || channel.whole;
  }
  if (channels.size() == 1) result.channels[1] = result.channels[2] = result.channels[0];
  for (const Layer& layer : contents.layers) {
    if (layer.subimage != result.subimage) continue;
    result.extent = layer.extent;
    result.deep = layer.deep;
    result.coverage = result.coverage || (layer.coverage && layer.channels[alpha] == result.channels[alpha]);
  }
  return result;
}

}  // namespace

Layer select(const Contents& contents, std::string_view layer, const std::vector<std::string>& channels) {
  const Layer* within = layer.empty() ? nullptr : &find_layer(contents, layer);
  Layer result = channels.empty() ? find_layer(contents, layer) : picked(contents, within, channels);
  if (result.deep) fail("its image is deep, which is not supported; flatten it first (oiiotool --flatten)");
  return result;
}

}  // namespace host::plates
