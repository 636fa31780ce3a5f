#include "bench/host/plates.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>
#include <stdexcept>
#include <vector>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imagebufalgo.h>
#include <OpenImageIO/imageio.h>

namespace bench {
namespace {

void write(const std::filesystem::path& file, int width, int height, const std::vector<float>& values,
           const std::vector<std::string>& channels) {
  OIIO::ImageSpec spec(width, height, static_cast<int>(channels.size()), OIIO::TypeHalf);
  spec.channelnames = channels;
  spec.attribute("compression", "zip");
  const auto output = OIIO::ImageOutput::create(file.string());
  if (!output || !output->open(file.string(), spec) || !output->write_image(OIIO::TypeFloat, values.data()) ||
      !output->close()) {
    throw std::runtime_error("cannot write " + file.string());
  }
}

// A soft disc of one colour where `radius` is above 0, else an opaque picture.
std::vector<float> paint(int width, int height, double centre, double radius, uint32_t seed) {
  std::vector<float> rgba;
  rgba.reserve(static_cast<size_t>(width) * static_cast<size_t>(height) * 4);
  std::minstd_rand random(seed);
  std::uniform_real_distribution<float> grain(-0.02F, 0.02F);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double distance = std::hypot(x - centre, y - height * 0.5);
      const auto alpha =
          radius > 0 ? static_cast<float>(std::clamp((radius - distance) / (0.2 * radius), 0.0, 1.0)) : 1.0F;
      const auto wave = static_cast<float>(0.5 + 0.4 * std::sin(x * 0.01 + y * 0.013));
      for (const float weight : {1.0F, 0.6F, 0.3F}) rgba.push_back(alpha * (wave * weight + grain(random)));
      rgba.push_back(alpha);
    }
  }
  return rgba;
}

}  // namespace

std::string padded(int frame) {
  const std::string digits = std::to_string(frame);
  return std::string(digits.size() < 4 ? 4 - digits.size() : 0, '0') + digits;
}

void write_plates(const std::filesystem::path& folder, int width, int height, int frames) {
  const std::vector<std::string> rgba = {"R", "G", "B", "A"};
  write(folder / "bg.exr", width, height, paint(width, height, 0, 0, 1), rgba);
  for (int frame = 1; frame <= frames; ++frame) {
    write(folder / ("fg." + padded(frame) + ".exr"), width, height,
          paint(width, height, width * (0.3 + 0.4 * frame / frames), height * 0.4,
                static_cast<uint32_t>(frame) + 1),
          rgba);
  }
}

std::string layer_name(int layer) {
  if (layer == 0) return "";
  return (layer < 10 ? "l0" : "l") + std::to_string(layer);
}

void write_layers(const std::filesystem::path& file, int width, int height, int layers) {
  const size_t pixels = static_cast<size_t>(width) * static_cast<size_t>(height);
  const auto count = static_cast<size_t>(layers) * 4;
  std::vector<float> values(pixels * count);
  std::vector<std::string> channels;
  for (int layer = 0; layer < layers; ++layer) {
    const std::string name = layer_name(layer);
    for (const char* channel : {"R", "G", "B", "A"})
      channels.push_back(name.empty() ? channel : std::string(name).append(".").append(channel));
    const std::vector<float> rgba =
        paint(width, height, width * 0.5, height * 0.4, static_cast<uint32_t>(layer) + 1);
    const auto first = static_cast<size_t>(layer) * 4;
    for (size_t i = 0; i < pixels; ++i)
      std::copy_n(rgba.begin() + static_cast<std::ptrdiff_t>(i * 4), 4,
                  values.begin() + static_cast<std::ptrdiff_t>(i * count + first));
  }
  write(file, width, height, values, channels);
}

double largest_difference(const std::filesystem::path& a, const std::filesystem::path& b) {
  const OIIO::ImageBuf first(a.string());
  const OIIO::ImageBuf second(b.string());
  if (first.roi() != second.roi()) return std::numeric_limits<double>::infinity();
  return OIIO::ImageBufAlgo::compare(first, second, 1, 1).maxerror;
}

}  // namespace bench
