#include "host/decode/read_ids.h"

#include "host/decode/read_layers.h"

#include <cstdint>
#include <stdexcept>
#include <vector>

#include <OpenImageIO/imageio.h>

namespace host::decode {
namespace {

constexpr uint32_t most_exact = uint32_t{1} << 24;

template <class Value>
std::vector<Value> channel_of(OIIO::ImageInput& input, const plates::Layer& layer, int channel,
                              OIIO::TypeDesc type) {
  std::vector<Value> values(static_cast<size_t>(box_width(layer.extent.window)) *
                            static_cast<size_t>(box_height(layer.extent.window)));
  if (!input.read_image(layer.subimage, 0, channel, channel + 1, type, values.data())) {
    throw std::runtime_error(input.geterror());
  }
  return values;
}

}  // namespace

Pixels read_ids(const std::string& path, plates::OpenFile* file, const plates::Layer& layer) {
  const auto own = file ? nullptr : OIIO::ImageInput::open(path);
  OIIO::ImageInput* const input = file ? file->input.get() : own.get();
  if (!input) throw std::runtime_error(path + ": " + OIIO::geterror());
  const OIIO::ImageSpec spec = input->spec(layer.subimage, 0);
  if (spec.width != box_width(layer.extent.window) || spec.height != box_height(layer.extent.window)) {
    throw std::runtime_error(path + ": the file changed while it was being read");
  }
  const auto rgba = pixel_buffer(layer.extent.window);
  const auto pixels = static_cast<size_t>(spec.width) * static_cast<size_t>(spec.height);
  std::vector<uint8_t> inexact(pixels);
  for (size_t c = 0; c < 4; ++c) {
    const int channel = layer.channels[c];
    const auto put = [&](const auto& values) {
      for (size_t i = 0; i < pixels; ++i) rgba.get()[i * 4 + c] = static_cast<float>(values[i]);
    };
    if (channel < 0) {
      put(std::vector<float>(pixels, c == 3 ? 1.0F : 0.0F));
    } else if (spec.channelformat(channel) == OIIO::TypeUInt32) {
      const auto values = channel_of<uint32_t>(*input, layer, channel, OIIO::TypeUInt32);
      put(values);
      for (size_t i = 0; i < pixels; ++i) {
        if (values[i] > most_exact) inexact[i] = 1;
      }
    } else {
      put(channel_of<float>(*input, layer, channel, OIIO::TypeFloat));
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
