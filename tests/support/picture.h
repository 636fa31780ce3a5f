#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace support {

// An RGBA float image in host memory, rows top to bottom.
struct Picture {
  int w = 0, h = 0;
  std::vector<float> rgba;

  Picture() = default;
  Picture(int width, int height, float value = 0)
      : w(width), h(height), rgba(static_cast<size_t>(width) * static_cast<size_t>(height) * 4, value) {}

  float& at(int x, int y, int c) {
    return rgba[(static_cast<size_t>(y) * static_cast<size_t>(w) + static_cast<size_t>(x)) * 4 +
                static_cast<size_t>(c)];
  }
  float at(int x, int y, int c) const {
    return const_cast<Picture*>(this)->at(x, y, c);
  }
  // Beyond the border the edge pixel again.
  float held(int x, int y, int c) const {
    return at(std::min(std::max(x, 0), w - 1), std::min(std::max(y, 0), h - 1), c);
  }
};

// What a photograph brings to a filter: a falling sky, hard slanted edges, fine weave, grain, a lamp
// a hundred times brighter than white, deep shadow, and a premultiplied alpha with a soft rim.
inline Picture photograph(int w, int h, uint32_t seed = 1) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> grain(-0.02F, 0.02F);
  Picture result(w, h);
  const float scale = static_cast<float>(std::max(w, h));
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      const float u = static_cast<float>(x) / scale, v = static_cast<float>(y) / scale;
      const bool roof = v > 0.25F + 0.4F * std::fabs(u - 0.5F);
      const float weave = roof ? 0.15F + 0.1F * std::sin(90 * u) * std::sin(70 * v) : 0;
      const float sky = roof ? 0 : 0.8F - 0.9F * v;
      const float lamp = std::hypot(u - 0.7F, v - 0.15F) < 0.012F ? 100 : 0;
      const float alpha = std::min(1.0F, std::max(0.0F, (0.62F - std::hypot(u - 0.5F, v - 0.3F)) * 6));
      const float base[3] = {sky * 0.5F + weave * 1.4F, sky * 0.7F + weave, sky + weave * 0.6F};
      for (int c = 0; c < 3; ++c) result.at(x, y, c) = std::max(0.0F, base[c] + grain(random) + lamp) * alpha;
      result.at(x, y, 3) = alpha;
    }
  }
  return result;
}

}  // namespace support
