#include "host/decode/read_ids.h"

#include "host/decode/read_layers.h"
#include "host/plates/part_info.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace host::decode {
namespace {

constexpr double most_exact = 1 << 24;

}  // namespace

Pixels read_ids(const std::string& path, plates::OpenFile& file, const plates::Layer& layer) {
  const auto part = file.by_general().part(layer.subimage);
  const Box& window = layer.extent.window;
  if (!part || part->data.width != box_width(window) || part->data.height != box_height(window))
    throw std::runtime_error(path + ": the file changed while it was being read");
  const auto rgba = pixel_buffer(window);
  const auto pixels = static_cast<size_t>(part->data.width) * static_cast<size_t>(part->data.height);
  std::vector<uint8_t> inexact(pixels);
  for (size_t c = 0; c < 4; ++c) {
    const int channel = layer.channels[c];
    if (channel < 0) {
      for (size_t i = 0; i < pixels; ++i) rgba.get()[i * 4 + c] = c == 3 ? 1.0F : 0.0F;
      continue;
    }
    const std::vector<double> values = file.by_general().values(layer.subimage, channel, channel + 1);
    const bool whole = part->channels.at(static_cast<size_t>(channel)).type == "uint32";
    for (size_t i = 0; i < pixels; ++i) {
      rgba.get()[i * 4 + c] = static_cast<float>(values[i]);
      if (whole && values[i] > most_exact) inexact[i] = 1;
    }
  }
  int64_t count = 0;
  for (const uint8_t each : inexact) count += each;
  std::string notice;
  if (count > 0) {
    notice =
        path + ": " + std::to_string(count) + " pixels hold whole numbers above 16777216, which are rounded";
  }
  return {layer.extent, rgba, notice};
}

}  // namespace host::decode
