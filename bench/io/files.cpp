#include "bench/io/benches.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <stdexcept>
#include <vector>

#include <Imath/half.h>
#include <OpenImageIO/imageio.h>

Folder::Folder() {
  std::string name = (std::filesystem::temp_directory_path() / "qv_bench_io_XXXXXX").string();
  path_ = ::mkdtemp(name.data());
}

Folder::~Folder() {
  std::filesystem::remove_all(path_);
}

std::string Folder::image(const std::string& compression, int width, int height, int layers,
                          Picture picture) const {
  const float amount = picture == Picture::grainy ? 1e-5f : 0;
  const int channels = 4 * layers;
  OIIO::ImageSpec spec(width, height, channels, OIIO::TypeHalf);
  spec.attribute("compression", compression);
  if (layers > 1) {
    spec.channelnames.clear();
    for (int i = 0; i < channels; ++i)
      spec.channelnames.push_back("layer" + std::to_string(100 + i / 4) + "." + "RGBA"[i % 4]);
  }
  // Slow waves in the colours, an ellipse in alpha.
  std::mt19937 random(1);
  std::vector<uint16_t> pixels(static_cast<size_t>(width) * static_cast<size_t>(height) *
                               static_cast<size_t>(channels));
  size_t at = 0;
  for (int y = 0; y < height; ++y) {
    const float down = std::cos(static_cast<float>(y) * 0.004f);
    for (int x = 0; x < width; ++x) {
      const float u = static_cast<float>(2 * x - width) / static_cast<float>(width);
      const float v = static_cast<float>(2 * y - height) / static_cast<float>(height);
      for (int c = 0; c < channels; ++c, ++at) {
        const float wave = 0.5f + 0.4f * down * std::sin(static_cast<float>(x * (c % 7 + 1)) * 0.002f);
        const float grain = static_cast<float>(random() >> 22) * amount;
        pixels[at] = half(c % 4 == 3 ? (u * u + v * v < 0.6f ? 1.0f : 0.0f) : wave + grain).bits();
      }
    }
  }
  const std::string path = (path_ / (compression + (amount > 0 ? "grainy" : "smooth") +
                                     std::to_string(width) + "x" + std::to_string(layers) + ".exr"))
                               .string();
  const auto output = OIIO::ImageOutput::create(path);
  if (!output || !output->open(path, spec) || !output->write_image(OIIO::TypeHalf, pixels.data()) ||
      !output->close())
    throw std::runtime_error("cannot write " + path);
  return path;
}
