#include "tests/host/render/placed_cases.h"
#include "tests/host/render/scene.h"

#include <gtest/gtest.h>

namespace {

using Rgba = std::array<float, 4>;

// A plate of the format 9 x 9 with pixels in the window (3, 3, 6, 6) alone: `ring` around `middle`.
void write_spot(const std::string& name, Rgba ring, Rgba middle) {
  scene::Plate plate{3, 3, scene::rgba_names, {}, 3, 3, 9, 9};
  for (int i = 0; i < 9; ++i)
    plate.pixels.insert(plate.pixels.end(), (i == 4 ? middle : ring).begin(), (i == 4 ? middle : ring).end());
  scene::write_plate(name, plate);
}

Rgba grey(float value) {
  return {value, value, value, value};
}

// The plates are a point of 9 in nothing, a block of ones, and a block of grey 0.25 with alpha 0.5. A box
// of 3 by 3 leaves a ninth of a value wherever it touches it. Not blurred, a glow is the image: colour 0.25
// + 2 * 0.25 * tint, alpha 0.5 + 2 * 0.5 held to 1; beyond a tolerance of 0.125 are 0.125 and 0.375.
// Sharpening adds 9 - 1 to the point, and what is held to -0.5 beside it; alpha stays. Half a pixel of
// dilation is half of what a whole one would do. A Gaussian reaches 1.5 of its size, through a coarse image a
// cell further. A flat matte has no edge, a point is all edge.
constexpr const char* placed = R"(
box blur of a point           | point | blur         | "size": 3, "kernel": "box" | 9 9 | 2 2 7 7 | 4 4 1, 3 3 1, 5 4 1, 2 4 0, 6 6 0
blur along x                  | point | blur         | "size": [3, 0], "kernel": "box" | 9 9 | 2 3 7 6 | 3 4 3, 4 4 3, 4 5 0
a Gaussian's reach            | point | blur         | "size": [4, 7], "kernel": "gaussian" | 9 9 | -3 -7 12 16 |
a triangle's reach            | point | blur         | "size": 5, "kernel": "triangle" | 9 9 | -1 -1 10 10 |
a quadratic's reach           | point | blur         | "size": 3, "kernel": "quadratic" | 9 9 | -1 -1 10 10 |
through a coarse image        | point | blur         | "size": 24, "kernel": "gaussian", "limit": 6 | 9 9 | -37 -37 46 46 |
a disc's reach                | point | disc_blur    | "radius": [3, 5] | 9 9 | 0 -2 9 11 |
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
)";

TEST(FilterNodes, DrawWhatTheFormulasSay) {
  write_spot("point.exr", grey(0), grey(9));
  write_spot("block.exr", grey(1), grey(1));
  write_spot("dim.exr", {0.25F, 0.25F, 0.25F, 0.5F}, {0.25F, 0.25F, 0.25F, 0.5F});
  write_spot("keyed.exr", {0.25F, 0.5F, 1, 1}, {0.125F, 0.25F, 0.5F, 0.5F});
  scene::Plate depth{3, 3, {"Z"}, std::vector<float>(9, 3), 3, 3, 9, 9};
  depth.pixels[4] = 2;
  scene::write_plate("depth.exr", depth);
  scene::check_placed_cases(placed, 9, 9);
}

}  // namespace
