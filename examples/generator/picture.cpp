#include "examples/generator/picture.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace plates {
namespace {

float lattice(int x, int y, uint32_t seed) {
  uint32_t h =
      seed * 0x9E3779B9U ^ static_cast<uint32_t>(x) * 0x85EBCA6BU ^ static_cast<uint32_t>(y) * 0xC2B2AE35U;
  h = (h ^ (h >> 15)) * 0x2C1B3C6DU;
  h = (h ^ (h >> 12)) * 0x297A2D39U;
  h ^= h >> 15;
  return static_cast<float>(h >> 8) / 8388608.0F - 1;
}

}  // namespace

float ramp(float low, float high, float x) {
  const float t = std::clamp((x - low) / (high - low), 0.0F, 1.0F);
  return t * t * (3 - 2 * t);
}

Picture::Picture(int width, int height)
    : width_(width), height_(height), texels_(static_cast<size_t>(width) * static_cast<size_t>(height) * 5) {}

Point Picture::at(int column, int row) const {
  return {(static_cast<float>(column) + 0.5F) * pixel(),
          (static_cast<float>(height_ - row) - 0.5F) * pixel()};
}

void Picture::paint(int column, int row, Colour colour, float alpha, float depth) {
  float* const under = texel(column, row);
  const float rest = 1 - alpha;
  under[0] = colour.r * alpha + under[0] * rest;
  under[1] = colour.g * alpha + under[1] * rest;
  under[2] = colour.b * alpha + under[2] * rest;
  under[3] = alpha + under[3] * rest;
  under[4] = depth * alpha + under[4] * rest;
}

void Picture::line(Point a, Point b, float radius_a, float radius_b, Colour colour, float alpha,
                   float depth) {
  const float reach = std::max(radius_a, radius_b) + pixel();
  const auto columns = [&](float x) { return static_cast<int>(std::floor(x * static_cast<float>(height_))); };
  const int left = std::max(0, columns(std::min(a.x, b.x) - reach));
  const int right = std::min(width_ - 1, columns(std::max(a.x, b.x) + reach));
  const int top = std::max(0, height_ - 1 - columns(std::max(a.y, b.y) + reach));
  const int bottom = std::min(height_ - 1, height_ - 1 - columns(std::min(a.y, b.y) - reach));
  const Point along{b.x - a.x, b.y - a.y};
  const float length2 = std::max(along.x * along.x + along.y * along.y, 1e-12F);
  for (int row = top; row <= bottom; ++row) {
    for (int column = left; column <= right; ++column) {
      const Point p = at(column, row);
      const float t = std::clamp(((p.x - a.x) * along.x + (p.y - a.y) * along.y) / length2, 0.0F, 1.0F);
      const float distance = std::hypot(p.x - a.x - t * along.x, p.y - a.y - t * along.y);
      const float radius = radius_a + (radius_b - radius_a) * t;
      const float drawn = std::max(radius, 0.5F * pixel());
      const float cover = std::clamp((drawn - distance) / pixel() + 0.5F, 0.0F, 1.0F) * (radius / drawn);
      if (cover > 0) paint(column, row, colour, cover * alpha, depth);
    }
  }
}

float Random::unit() {
  state_ += 0x9E3779B97F4A7C15U;
  uint64_t z = state_;
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9U;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBU;
  return static_cast<float>((z ^ (z >> 31)) >> 40) / 16777216.0F;
}

float Random::within(float low, float high) {
  return low + (high - low) * unit();
}

float Random::bell() {
  float sum = 0;
  for (int i = 0; i < 6; ++i) sum += unit();
  return (sum - 3) * 1.4142F;
}

float noise(float x, float y, uint32_t seed) {
  const float column = std::floor(x);
  const float row = std::floor(y);
  const auto i = static_cast<int>(column);
  const auto j = static_cast<int>(row);
  const float u = ramp(0, 1, x - column);
  const float v = ramp(0, 1, y - row);
  const float low = lattice(i, j, seed) * (1 - u) + lattice(i + 1, j, seed) * u;
  const float high = lattice(i, j + 1, seed) * (1 - u) + lattice(i + 1, j + 1, seed) * u;
  return low * (1 - v) + high * v;
}

float fractal(float x, float y, uint32_t seed, int octaves) {
  float sum = 0;
  float weight = 1;
  for (int i = 0; i < octaves; ++i) {
    sum += noise(x, y, seed + static_cast<uint32_t>(i)) * weight;
    weight *= 0.5F;
    x *= 2;
    y *= 2;
  }
  return sum;
}

void add_grain(Picture& picture, uint64_t seed, float strength) {
  Random random(seed);
  for (int row = 0; row < picture.height(); ++row) {
    for (int column = 0; column < picture.width(); ++column) {
      float* const texel = picture.texel(column, row);
      for (int c = 0; c < 3; ++c)
        texel[c] += random.bell() * strength * (0.1F + std::sqrt(std::abs(texel[c])));
    }
  }
}

}  // namespace plates
