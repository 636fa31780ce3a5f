#include "tests/host/render/scene.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using host::Box;
using Rgba = std::array<float, 4>;

// A plate of the format 9 x 9 with pixels in the window (3, 3, 6, 6) alone: `ring` around `middle`.
void write_spot(const std::string& name, Rgba ring, Rgba middle) {
  scene::Plate plate;
  plate.width = plate.height = 3;
  plate.x = plate.y = 3;
  plate.full_width = plate.full_height = 9;
  for (int i = 0; i < 9; ++i) {
    const Rgba& value = i == 4 ? middle : ring;
    plate.pixels.insert(plate.pixels.end(), value.begin(), value.end());
  }
  scene::write_plate(scene::folder() / name, plate);
}

struct Probe {
  int64_t x;
  int64_t y;
  Rgba expected;
};

struct Case {
  const char* what;
  const char* plate;
  const char* type;
  const char* knobs;
  Box window;
  std::vector<Probe> probes;
};

constexpr Rgba none = {0, 0, 0, 0};
constexpr Rgba one = {1, 1, 1, 1};

Rgba grey(double value) {
  const auto each = static_cast<float>(value);
  return {each, each, each, each};
}

const std::vector<Case>& cases() {
  static const std::vector<Case> all = {
      // 9 in the middle of zeros: a box of 3 by 3 leaves 1 wherever it touches it.
      {"box blur of a point",
       "point.exr",
       "blur",
       R"("size": 3, "kernel": "box")",
       {2, 2, 7, 7},
       {{4, 4, one}, {3, 3, one}, {5, 4, one}, {2, 4, none}, {6, 6, none}}},
      // Sideways alone: 9 over three pixels of its row.
      {"blur along x",
       "point.exr",
       "blur",
       R"("size": [3, 0], "kernel": "box")",
       {2, 3, 7, 6},
       {{3, 4, grey(3)}, {4, 4, grey(3)}, {4, 5, none}}},
      // The edge pixel of a full block counts for all that lies beyond it.
      {"repeated edges",
       "block.exr",
       "blur",
       R"("size": 3, "kernel": "box", "edges": "repeat")",
       {3, 3, 6, 6},
       {{3, 3, one}, {4, 4, one}}},
      {"transparent edges",
       "block.exr",
       "blur",
       R"("size": 3, "kernel": "box")",
       {2, 2, 7, 7},
       {{3, 3, grey(4.0 / 9)}, {4, 4, one}, {2, 2, grey(1.0 / 9)}, {3, 4, grey(6.0 / 9)}}},
      {"a blur of nothing", "block.exr", "blur", R"("size": 0)", {3, 3, 6, 6}, {{3, 3, one}}},
      // Not blurred, the glow is the image: colour 0.25 + 2 * 0.25 * tint, alpha 0.5 + 2 * 0.5, held to 1.
      {"glow without a blur",
       "dim.exr",
       "glow",
       R"("size": 0, "brightness": 2, "tint": [1, 0.5, 0])",
       {3, 3, 6, 6},
       {{4, 4, {0.75F, 0.5F, 0.25F, 1}}}},
      // Beyond the tolerance: 0.25 - 0.125; alpha 0.5 - 0.125.
      {"only the glow",
       "dim.exr",
       "glow",
       R"("size": 0, "tolerance": 0.125, "effect_only": true)",
       {3, 3, 6, 6},
       {{4, 4, {0.125F, 0.125F, 0.125F, 0.375F}}}},
      // 9 - 1 is added to the middle; beside it 0 - 1 is held to -0.5. Alpha stays.
      {"sharpen",
       "point.exr",
       "sharpen",
       R"("size": 3, "kernel": "box", "amount": 1, "least": -0.5, "most": 100)",
       {3, 3, 6, 6},
       {{4, 4, {17, 17, 17, 9}}, {3, 4, {-0.5F, -0.5F, -0.5F, 0}}}},
      {"dilate grows",
       "block.exr",
       "dilate",
       R"("amount": 1)",
       {1, 1, 8, 8},
       {{2, 2, one}, {6, 6, one}, {1, 4, none}, {7, 4, none}}},
      // By half a pixel: half of what one pixel would do.
      {"dilate by a half",
       "block.exr",
       "dilate",
       R"("amount": 0.5)",
       {1, 1, 8, 8},
       {{2, 4, grey(0.5)}, {3, 4, one}, {1, 4, none}}},
      {"dilate shrinks",
       "block.exr",
       "dilate",
       R"("amount": -1)",
       {2, 2, 7, 7},
       {{4, 4, one}, {3, 4, none}, {5, 5, none}}},
      {"filter_erode grows",
       "block.exr",
       "filter_erode",
       R"("amount": 1)",
       {1, 1, 8, 8},
       {{2, 2, one}, {4, 4, one}, {1, 4, none}}},
      {"filter_erode shrinks",
       "block.exr",
       "filter_erode",
       R"("amount": -1)",
       {2, 2, 7, 7},
       {{4, 4, one}, {3, 4, none}}},
      {"erode grows",
       "block.exr",
       "erode",
       R"("amount": 1)",
       {1, 1, 8, 8},
       {{4, 4, one}, {3, 4, one}, {0, 4, none}}},
      {"erode of nothing", "block.exr", "erode", R"("amount": 0)", {3, 3, 6, 6}, {{3, 3, one}}},
      // A flat matte has no edge; the point's alpha is all edge, and the blur of 9 is 1.
      {"edge_blur without an edge",
       "block.exr",
       "edge_blur",
       R"("size": 3, "kernel": "box")",
       {3, 3, 6, 6},
       {{3, 3, one}, {4, 4, one}}},
      {"edge_blur of a point",
       "point.exr",
       "edge_blur",
       R"("size": 3, "kernel": "box")",
       {3, 3, 6, 6},
       {{4, 4, one}, {3, 3, one}}},
      {"disc of nothing", "block.exr", "disc_blur", R"("radius": 0.25)", {3, 3, 6, 6}, {{3, 3, one}}},
      // Too far from any edge to see one.
      {"disc inside a block",
       "block.exr",
       "disc_blur",
       R"("radius": 1, "edges": "repeat")",
       {3, 3, 6, 6},
       {{4, 4, one}, {3, 3, one}}},
  };
  return all;
}

TEST(FilterNodes, DrawWhatTheFormulasSay) {
  write_spot("point.exr", none, grey(9));
  write_spot("block.exr", one, one);
  write_spot("dim.exr", {0.25F, 0.25F, 0.25F, 0.5F}, {0.25F, 0.25F, 0.25F, 0.5F});
  for (const Case& each : cases()) {
    scene::Scene shot(std::string(R"({"name": "p", "type": "read", "knobs": {"file": ")") + each.plate +
                          R"("}}, {"name": "f", "type": ")" + each.type + R"(", "inputs": "p", "knobs": {)" +
                          each.knobs + "}}",
                      9, 9);
    const auto image = shot.image("f");
    EXPECT_EQ(image.extent.window, each.window) << each.what;
    for (const Probe& probe : each.probes) {
      const Rgba found = scene::pixel(image, probe.x, probe.y);
      for (size_t channel = 0; channel < 4; ++channel) {
        EXPECT_NEAR(found[channel], probe.expected[channel], 1e-5)
            << each.what << ": pixel " << probe.x << ", " << probe.y << ", channel " << channel;
      }
    }
  }
}

double sum_of(const host::render::HostImage& image) {
  double sum = 0;
  for (const float each : image.rgba) sum += each;
  return sum;
}

// Whatever its shape, a blur moves light and makes none; on a smaller image as well, and wherever
// the image lies.
TEST(FilterNodes, BlursKeepTheLight) {
  write_spot("spot.exr", grey(0.5), grey(3));
  const double light = 4 * (8 * 0.5 + 3);
  for (const char* filter : {R"("type": "blur", "knobs": {"size": [4, 7], "kernel": "gaussian"})",
                             R"("type": "blur", "knobs": {"size": 5, "kernel": "triangle"})",
                             R"("type": "blur", "knobs": {"size": 3, "kernel": "quadratic"})",
                             R"("type": "blur", "knobs": {"size": 24, "kernel": "gaussian", "limit": 6})",
                             R"("type": "disc_blur", "knobs": {"radius": [3, 5]})",
                             R"("type": "disc_blur", "knobs": {"radius": 2.5, "direct": true})"}) {
    scene::Scene shot(std::string(R"({"name": "p", "type": "read", "knobs": {"file": "spot.exr"}},
                                     {"name": "f", "inputs": "p", )") +
                          filter + "}",
                      9, 9);
    EXPECT_NEAR(sum_of(shot.image("f")), light, light * 2e-3) << filter;
  }
}

}  // namespace
