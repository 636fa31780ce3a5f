#include "bench/host/plates.h"

#include <algorithm>
#include <cmath>
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

void write(const std::filesystem::path& file, int width, int height, const std::vector<float>& rgba) {
  OIIO::ImageSpec spec(width, height, 4, OIIO::TypeHalf);
  spec.attribute("compression", "zip");
  const auto output = OIIO::ImageOutput::create(file.string());
  if (!output || !output->open(file.string(), spec) || !output->write_image(OIIO::TypeFloat, rgba.data()) ||
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
  write(folder / "bg.exr", width, height, paint(width, height, 0, 0, 1));
  for (int frame = 1; frame <= frames; ++frame) {
    write(folder / ("fg." + padded(frame) + ".exr"), width, height,
          paint(width, height, width * (0.3 + 0.4 * frame / frames), height * 0.4,
                static_cast<uint32_t>(frame) + 1));
  }
}

double largest_difference(const std::filesystem::path& a, const std::filesystem::path& b) {
  const OIIO::ImageBuf first(a.string());
  const OIIO::ImageBuf second(b.string());
  if (first.roi() != second.roi()) return std::numeric_limits<double>::infinity();
  return OIIO::ImageBufAlgo::compare(first, second, 1, 1).maxerror;
}

}  // namespace bench
