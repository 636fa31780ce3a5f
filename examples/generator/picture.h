#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// What the plates are painted with. Coordinates are in units of the picture's height, x to the right,
// y up, the origin at its lower left: so the same picture comes out at any size.
namespace plates {

struct Colour {
  float r = 0;
  float g = 0;
  float b = 0;
};

inline Colour operator*(Colour a, float k) {
  return {a.r * k, a.g * k, a.b * k};
}
inline Colour operator+(Colour a, Colour b) {
  return {a.r + b.r, a.g + b.g, a.b + b.b};
}
inline Colour mix(Colour a, Colour b, float t) {
  return a * (1 - t) + b * t;
}

struct Point {
  float x = 0;
  float y = 0;
};

// 0 below `low`, 1 above `high`, smooth between.
float ramp(float low, float high, float x);

// Premultiplied RGBA and depth, rows top to bottom. Depth is a distance from the camera; what is
// painted takes over depth as its coverage grows.
class Picture {
 public:
  Picture(int width, int height);

  int width() const {
    return width_;
  }
  int height() const {
    return height_;
  }
  float aspect() const {
    return static_cast<float>(width_) / static_cast<float>(height_);
  }
  // The centre of a pixel; a pixel's size in these units.
  Point at(int column, int row) const;
  float pixel() const {
    return 1 / static_cast<float>(height_);
  }

  // Lays a colour over a pixel; alpha is its coverage.
  void paint(int column, int row, Colour colour, float alpha, float depth);

  // A round-ended line whose width runs from one radius to the other. Thinner than a pixel, it keeps
  // its weight by covering less.
  void line(Point a, Point b, float radius_a, float radius_b, Colour colour, float alpha, float depth);

  // Five floats a pixel: red, green, blue, alpha, depth.
  float* texel(int column, int row) {
    return &texels_[(static_cast<size_t>(row) * static_cast<size_t>(width_) + static_cast<size_t>(column)) *
                    5];
  }
  const std::vector<float>& texels() const {
    return texels_;
  }

 private:
  int width_;
  int height_;
  std::vector<float> texels_;
};

// The same numbers on every machine: splitmix64.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  float unit();  // 0 to 1
  float within(float low, float high);
  float bell();  // mean 0, deviation 1

 private:
  uint64_t state_;
};

// Smooth noise of about -1 to 1 with features one unit wide.
float noise(float x, float y, uint32_t seed);

// Octaves of it, each half as wide and half as strong.
float fractal(float x, float y, uint32_t seed, int octaves);

// The plates. `time` runs from 0 to 1 through the shot.
void paint_creature(Picture& picture, float time);  // in front of a green screen
void paint_landscape(Picture& picture);
void paint_title(Picture& picture);  // on nothing

// Grain of a camera: noise that grows with light.
void add_grain(Picture& picture, uint64_t seed, float strength);

}  // namespace plates
