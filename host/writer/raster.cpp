#include "host/writer/raster.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <stdexcept>

namespace host::writer {
namespace {

// Cuts and extends the picture's pixels to the raster's window.
void lay_out(const Picture& picture, Raster& raster, std::vector<float>& storage) {
  const Box& from = picture.extent.window;
  const Box shared = intersection(from, raster.window);
  const int64_t width = box_width(raster.window);
  raster.pixel = raster.channels;
  raster.row = width * raster.pixel;
  storage.assign(static_cast<size_t>(raster.row * box_height(raster.window)), 0.0F);
  raster.first = storage.data();
  for (int64_t y = shared[1]; y < shared[3]; ++y) {
    const float* source =
        picture.rgba.get() + ((from[3] - 1 - y) * box_width(from) + shared[0] - from[0]) * 4;
    float* target = storage.data() + (raster.window[3] - 1 - y) * raster.row +
                    (shared[0] - raster.window[0]) * raster.pixel;
    for (int64_t x = shared[0]; x < shared[2]; ++x, source += 4, target += raster.pixel)
      std::copy_n(source, raster.channels, target);
  }
}

float srgb_encoded(float x) {
  return x <= 0.0031308F ? x * 12.92F : 1.055F * std::pow(x, 1 / 2.4F) - 0.055F;
}

bool holds(const Box& outer, const Box& inner) {
  return intersection(outer, inner) == inner;
}

}  // namespace

int32_t as_int(int64_t value) {
  if (value < std::numeric_limits<int32_t>::min() || value > std::numeric_limits<int32_t>::max())
    throw std::runtime_error("the image is too large for a file");
  return static_cast<int32_t>(value);
}

Raster raster_of(const Picture& picture, const Box& window, int channels, bool wanted,
                 std::vector<float>& storage) {
  const Box& from = picture.extent.window;
  Raster raster;
  raster.window = window;
  raster.channels = channels;
  if (wanted || !holds(from, window)) {
    lay_out(picture, raster, storage);
    return raster;
  }
  raster.row = box_width(from) * 4;
  raster.first = picture.rgba.get() + (from[3] - window[3]) * raster.row + (window[0] - from[0]) * 4;
  return raster;
}

// Colour is encoded as it looks without its coverage: premultiplied values lie on another curve.
void encode_colour(std::vector<float>& pixels, int channels, bool srgb, bool premultiplied, bool coverage) {
  for (size_t i = 0; i < pixels.size(); i += static_cast<size_t>(channels)) {
    float* const pixel = &pixels[i];
    const float alpha = channels == 4 && coverage ? pixel[3] : 1.0F;
    const float divisor = alpha != 0 ? alpha : 1.0F;
    for (int c = 0; c < 3; ++c) {
      float value = pixel[c] / divisor;
      if (srgb) value = srgb_encoded(value);
      pixel[c] = premultiplied ? value * divisor : value;
    }
  }
}

Extremes extremes_of(const Raster& raster) {
  Extremes found;
  for (int64_t y = 0; y < box_height(raster.window); ++y) {
    const float* pixel = raster.first + y * raster.row;
    for (int64_t x = 0; x < box_width(raster.window); ++x, pixel += raster.pixel) {
      bool infinite = false, nan = false;
      for (int c = 0; c < raster.channels; ++c) {
        infinite = infinite || std::isinf(pixel[c]);
        nan = nan || std::isnan(pixel[c]);
      }
      found.infinite += infinite ? 1 : 0;
      found.not_a_number += nan ? 1 : 0;
    }
  }
  return found;
}

void drop_not_a_number(std::vector<float>& pixels) {
  for (float& value : pixels) value = std::isnan(value) ? 0.0F : value;
}

}  // namespace host::writer
