#include "tests/host/render/placed_cases.h"
#include "tests/host/render/scene.h"

#include <numeric>
#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace {

using Rgba = std::array<float, 4>;

// A plate of the format 9 x 9 with pixels in the window (3, 3, 6, 6) alone: `ring` around `middle`.
void write_spot(const std::string& name, Rgba ring, Rgba middle) {
  scene::Plate plate{3, 3, {"R", "G", "B", "A"}, {}, 3, 3, 9, 9};
  for (int i = 0; i < 9; ++i)
    plate.pixels.insert(plate.pixels.end(), (i == 4 ? middle : ring).begin(), (i == 4 ? middle : ring).end());
  scene::write_plate(scene::folder() / name, plate);
}

constexpr Rgba none = {0, 0, 0, 0};
constexpr Rgba one = {1, 1, 1, 1};

Rgba grey(double value) {
  const auto each = static_cast<float>(value);
  return {each, each, each, each};
}

// The plates are a point of 9 in nothing, a block of ones, and a block of grey 0.25 with alpha 0.5. A box
// of 3 by 3 leaves a ninth of a value wherever it touches it. Not blurred, a glow is the image: colour 0.25
// + 2 * 0.25 * tint, alpha 0.5 + 2 * 0.5 held to 1; beyond a tolerance of 0.125 are 0.125 and 0.375.
// Sharpening adds 9 - 1 to the point, and what is held to -0.5 beside it; alpha stays. Half a pixel of
// dilation is half of what a whole one would do. A flat matte has no edge, a point is all edge.
constexpr const char* placed = R"(
box blur of a point           | point | blur         | "size": 3, "kernel": "box" | 9 9 | 2 2 7 7 | 4 4 1, 3 3 1, 5 4 1, 2 4 0, 6 6 0
blur along x                  | point | blur         | "size": [3, 0], "kernel": "box" | 9 9 | 2 3 7 6 | 3 4 3, 4 4 3, 4 5 0
repeated edges                | block | blur         | "size": 3, "kernel": "box", "edges": "repeat" | 9 9 | 3 3 6 6 | 3 3 1, 4 4 1
transparent edges             | block | blur         | "size": 3, "kernel": "box" | 9 9 | 2 2 7 7 | 3 3 0.44444444, 4 4 1, 2 2 0.11111111, 3 4 0.66666667
glow without a blur           | dim   | glow         | "size": 0, "brightness": 2, "tint": [1, 0.5, 0] | 9 9 | 3 3 6 6 | 4 4 0.75 0.5 0.25 1
only the glow                 | dim   | glow         | "size": 0, "tolerance": 0.125, "effect_only": true | 9 9 | 3 3 6 6 | 4 4 0.125 0.125 0.125 0.375
sharpen                       | point | sharpen      | "size": 3, "kernel": "box", "amount": 1, "least": -0.5, "most": 100 | 9 9 | 3 3 6 6 | 4 4 17 17 17 9, 3 4 -0.5 -0.5 -0.5 0
dilate grows                  | block | dilate       | "amount": 1, "channels": "rgba" | 9 9 | 1 1 8 8 | 2 2 1, 6 6 1, 1 4 0, 7 4 0
dilate by a half              | block | dilate       | "amount": 0.5, "channels": "rgba" | 9 9 | 1 1 8 8 | 2 4 0.5, 3 4 1, 1 4 0
dilate shrinks                | block | dilate       | "amount": -1 | 9 9 | 2 2 7 7 | 4 4 1, 3 4 0, 5 5 0
filter_erode shrinks          | block | filter_erode | "amount": -1 | 9 9 | 2 2 7 7 | 4 4 1, 3 4 0
erode grows                   | block | erode        | "amount": 1, "channels": "rgba" | 9 9 | 1 1 8 8 | 4 4 1, 3 4 1, 0 4 0
edge_blur of a point          | point | edge_blur    | "size": 3, "kernel": "box" | 9 9 | 3 3 6 6 | 4 4 1, 3 3 1
keyed, dilated                | keyed | dilate       | "amount": 1 | 9 9 | 1 1 8 8 | 4 4 0.25 0.5 1 1, 3 3 0.25 0.5 1 1, 2 2 0 0 0 1
keyed, shrunk                 | keyed | dilate       | "amount": -1 | 9 9 | 2 2 7 7 | 4 4 0.125 0.25 0.5 0.5, 3 3 0 0 0 0
keyed, eroded by a kernel     | keyed | filter_erode | "amount": -1 | 9 9 | 2 2 7 7 | 4 4 0.125 0.25 0.5 0.5, 3 3 0 0 0 0
depth has no matte            | depth | dilate       | "amount": -1, "edges": "repeat" | 9 9 | 3 3 6 6 | 4 4 2 2 2 1, 3 3 2 2 2 1
disc inside a block           | block | disc_blur    | "radius": 1, "edges": "repeat" | 9 9 | 3 3 6 6 | 4 4 1, 3 3 1
)";

TEST(FilterNodes, DrawWhatTheFormulasSay) {
  write_spot("point.exr", none, grey(9));
  write_spot("block.exr", one, one);
  write_spot("dim.exr", {0.25F, 0.25F, 0.25F, 0.5F}, {0.25F, 0.25F, 0.25F, 0.5F});
  write_spot("keyed.exr", {0.25F, 0.5F, 1, 1}, {0.125F, 0.25F, 0.5F, 0.5F});
  scene::Plate depth{3, 3, {"Z"}, std::vector<float>(9, 3), 3, 3, 9, 9};
  depth.pixels[4] = 2;
  scene::write_plate(scene::folder() / "depth.exr", depth);
  scene::check_placed_cases(placed, 9, 9);
}

// Whatever its shape, a blur moves light and makes none; on a smaller image as well, and wherever
// the image lies.
TEST(FilterNodes, BlursKeepTheLight) {
  write_spot("spot.exr", grey(0.5), grey(3));
  const double light = 4 * (8 * 0.5 + 3);
  const std::pair<const char*, const char*> filters[] = {
      {"blur", R"("size": [4, 7], "kernel": "gaussian")"},
      {"blur", R"("size": 5, "kernel": "triangle")"},
      {"blur", R"("size": 3, "kernel": "quadratic")"},
      {"blur", R"("size": 24, "kernel": "gaussian", "limit": 6)"},
      {"disc_blur", R"("radius": [3, 5])"},
      {"disc_blur", R"("radius": 2.5, "direct": true)"}};
  for (const auto& [type, knobs] : filters) {
    scene::Scene shot(scene::read_plate("spot.exr") + scene::node("f", "p", type, knobs), 9, 9);
    const host::render::HostImage image = shot.image("f");
    EXPECT_NEAR(std::accumulate(image.rgba.begin(), image.rgba.end(), 0.0), light, light * 2e-3) << knobs;
  }
}

}  // namespace
