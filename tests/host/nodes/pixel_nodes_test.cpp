#include "tests/host/render/placed_cases.h"
#include "tests/host/render/scene.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

#include <gtest/gtest.h>

namespace {

using scene::Rgba;

// A picture of 0.5 0.25 1 behind coverage 0.5; the same divided; and a matte of 0.25 in all channels, which
// is no coverage. Divided once, a grade does not divide again. With alpha alone, colour follows from 0.25 to
// 0.75.
constexpr const char* before = R"(
    {"name": "c", "type": "constant", "knobs": {"color": [0.25, 0.125, 0.5, 0.5]}},
    {"name": "u", "type": "unpremultiply", "inputs": "c"},
    {"name": "e", "type": "crop", "inputs": "c", "knobs": {"box": [0, 0, 1, 1]}},
    {"name": "m", "type": "range_key", "inputs": "c", "knobs": {"channel": "alpha", "range": [0, 2, 9, 9],
     "output": "matte", "channels": "rgba"}})";

constexpr const char* table = R"(
premultiplied         | premultiply   | 0.5 0.25 1 0.5 | | 0.25 0.125 0.5 0.5
divided               | unpremultiply | 0.25 0.125 0.5 0.5 | | 0.5 0.25 1 0.5
light alone           | unpremultiply | 0.5 0.25 1 0 | | 0.5 0.25 1 0
there and back        | premultiply   | "u" | | 0.25 0.125 0.5 0.5
graded in between     | grade         | "u" | "offset": 0.25 | 0.75 0.5 1.25 0.5
colour turned around  | invert        | "c" | | 0.25 0.375 0 0.5
matte turned around   | invert        | 0.25 0.125 0.5 0.25 | "channels": "alpha" | 0.75 0.375 1.5 0.75
everything            | invert        | 0.25 0.125 0.5 0.25 | "channels": "rgba" | 0 0.125 -0.25 0.75
values of data        | invert        | "m" | "channels": "rgba" | 0.875
white outside         | invert        | "e" | "channels": "alpha" | 0 0 0 1
)";

TEST(PixelNodes, DrawWhatTheFormulasSay) {
  scene::check_pixels(before, table);
}

// The mean of the numbers in the nearest square ring that has any, made here pixel by pixel.
float mean_around(const std::vector<float>& pixels, int side, int x, int y, size_t c) {
  for (int away = 1; away <= 16; ++away) {
    double sum = 0;
    int count = 0;
    for (int v = std::max(0, y - away); v <= std::min(side - 1, y + away); ++v)
      for (int u = std::max(0, x - away); u <= std::min(side - 1, x + away); ++u) {
        const float value = pixels[static_cast<size_t>(v * side + u) * 4 + c];
        if (std::max(std::abs(u - x), std::abs(v - y)) != away || !std::isfinite(value)) continue;
        sum += static_cast<double>(value);
        ++count;
      }
    if (count > 0) return static_cast<float>(sum / count);
  }
  return 0;
}

TEST(FindNan, ReplacesOrShowsWhatIsNoNumber) {
  constexpr int side = 40;
  std::mt19937 random(4);
  std::uniform_real_distribution<float> value(-1, 1);
  const std::array bad = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                          -std::numeric_limits<float>::infinity()};
  scene::Plate plate{side, side};
  for (int i = 0; i < side * side; ++i) {
    // A hole of 35 pixels, whose middle nothing reaches, and single values here and there.
    const int x = i % side, y = i / side;
    const bool hole = x < 35 && y < 35;
    for (int c = 0; c < 4; ++c)
      plate.pixels.push_back((c == 1 && hole) || random() % 5 == 0 ? bad.at(random() % 3) : value(random));
  }
  scene::write_plate("bad.exr", plate);
  for (const std::string replace : {"black", "neighbours", "show"}) {
    scene::Scene shot(
        scene::read_plate("bad.exr") + scene::node("n", "p", "find_nan", R"("replace": ")" + replace + '"'),
        side, side);
    const std::vector<float> found = shot.image("n").rgba;
    for (int i = 0; i < side * side; ++i) {
      const float* pixel = plate.pixels.data() + static_cast<size_t>(i) * 4;
      const bool whole = std::all_of(pixel, pixel + 4, [](float each) { return std::isfinite(each); });
      for (size_t c = 0; c < 4; ++c) {
        float expected = std::isfinite(pixel[c]) ? pixel[c] : 0;
        if (replace == "show") expected = whole ? 0 : 1;
        if (replace == "neighbours" && !std::isfinite(pixel[c]))
          expected = mean_around(plate.pixels, side, i % side, i / side, c);
        ASSERT_NEAR(found[static_cast<size_t>(i) * 4 + c], expected, 2e-6) << replace << " " << i << " " << c;
      }
    }
  }
}

// Edges of 2.5 by 3 lie on tenths of a pixel, so the middles of tenths give the share exactly.
double checkers(double x, double y) {
  int odd = 0;
  for (int i = 0; i < 100; ++i) {
    const double u = x - 0.45 + i % 10 * 0.1, v = y - 0.45 + (i - i % 10) / 100.0;
    odd += (static_cast<int>(u / 2.5) + static_cast<int>(v / 3)) % 2;
  }
  return odd / 100.0;
}

double straight(double x, double y) {
  return std::clamp(((x - 4) * 8 + (y - 2) * 6) / 100, 0.0, 1.0);
}

double smooth(double x, double y) {
  const double t = straight(x, y);
  return t * t * (3 - 2 * t);
}

double rings(double x, double y) {
  return std::min(std::hypot(x - 4, y - 2) / 10, 1.0);
}

double across(double x, double /*y*/) {
  return x / 16;
}

TEST(TestPictures, DrawWhatTheFormulasSay) {
  const Rgba first = {1, 0.5F, 0, 1}, second = {0, 0.25F, 1, 0.5F};
  const std::string colors = R"(, "first": [1, 0.5, 0, 1], "second": [0, 0.25, 1, 0.5])";
  const struct {
    const char* type;
    const char* knobs;
    double (*share)(double x, double y);  // of the second colour
  } cases[] = {{"checkerboard", R"("size": [2.5, 3])", checkers},
               {"ramp", R"("shape": "straight")", across},
               {"ramp", R"("from": [4, 2], "to": [12, 8])", straight},
               {"ramp", R"("from": [4, 2], "to": [12, 8], "shape": "smooth")", smooth},
               {"ramp", R"("from": [4, 2], "to": [12, 8], "shape": "rings")", rings}};
  for (const auto& each : cases) {
    scene::Scene shot(scene::node("n", "[]", each.type, each.knobs + colors), 16, 12);
    const auto image = shot.image("n");
    for (int64_t i = 0; i < 16 * 12 * 4; ++i) {
      const int64_t x = i / 4 % 16, y = i / 64;
      const auto c = static_cast<size_t>(i % 4);
      const double share = each.share(static_cast<double>(x) + 0.5, static_cast<double>(y) + 0.5);
      EXPECT_NEAR(scene::pixel(image, x, y)[c], std::lerp(first[c], second[c], share), 2e-6)
          << each.type << each.knobs << " " << i;
    }
  }
}

}  // namespace
