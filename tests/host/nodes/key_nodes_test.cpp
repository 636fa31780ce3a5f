#include "tests/host/render/placed_cases.h"
#include "tests/host/render/scene.h"

#include <gtest/gtest.h>

namespace {

using scene::Rgba;

// The first has the luminance 0.2126 / 4 + 0.7152 / 2 + 0.0722, the last is 0.5 behind coverage 0.5.
constexpr const char* ranges = R"(
luminance         | range_key | 0.25 0.5 1 1 | "output": "matte" | 0.48295
rising            | range_key | 0.25 0.5 1 1 | "channel": "red", "range": [0, 0.5, 0.5, 1], "output": "matte" | 0.5
falling           | range_key | 0.25 0.5 1 1 | "channel": "blue", "range": [0, 0, 0.5, 1.5], "output": "matte" | 0.5
put in order      | range_key | 0.25 0.5 1 1 | "channel": "red", "range": [0.5, 0, 3, 2], "output": "matte" | 0.5
one after another | range_key | 0.25 0.5 1 1 | "channel": "green", "range": [0.25, 0.75, 0.5, 0.5], "output": "matte" | 0.5
step              | range_key | 0.25 0.5 1 1 | "channel": "red", "range": [0.25, 0.25, 9, 9], "output": "matte" | 1
below a step      | range_key | 0.25 0.5 1 1 | "channel": "red", "range": [0.26, 0.26, 9, 9], "output": "matte" | 0
smallest          | range_key | 0.25 0.5 1 1 | "channel": "min", "output": "matte" | 0.25
largest           | range_key | 0.25 0.5 1 1 | "channel": "max", "range": [0, 2, 9, 9], "output": "matte" | 0.5
saturation        | range_key | 0.25 0.5 0.5 1 | "channel": "saturation", "output": "matte" | 0.5
inverted          | range_key | 0.25 0.5 1 1 | "channel": "green", "range": [0, 2, 9, 9], "invert": true, "output": "matte" | 0.75
image             | range_key | 0.25 0.25 0.25 0.5 | "channel": "red" | 0.125 0.125 0.125 0.25
matte of coverage | range_key | 0.25 0.25 0.25 0.5 | "channel": "red", "output": "matte" | 0.25
into alpha        | range_key | 0.25 0.25 0.25 0.5 | "channel": "red", "output": "alpha" | 0.25
alpha itself      | range_key | 0.25 0.25 0.25 0.5 | "channel": "alpha", "output": "matte" | 0.25
)";

// Foreground (0.1, 0.1, 0.1) of coverage 0.5 in front of the screen (0.1, 0.5, 0.1) is (0.15, 0.35, 0.15):
// excess 0.2 of the screen's 0.4. Thinned, matte 1/3 of what was 1/2; thickened to 2/3, a third of the way
// from the front to the plate without spill. Balanced, against red alone 0.2 of 0.4, against blue alone 0.3
// of 0.2. A core of 0.75 is half way from the front (0.1, 0.5) to the solid plate (0.15, 1).
constexpr const char* screens = R"(
the screen                 | screen_key | 0.1 0.5 0.1 1 | "screen": [0.1, 0.5, 0.1] | 0
the screen in shadow       | screen_key | 0.05 0.25 0.05 1 | "screen": [0.1, 0.5, 0.1] | 0 0 0 0.5
brighter than the screen   | screen_key | 0.2 1 0.2 1 | "screen": [0.1, 0.5, 0.1] | 0
solid                      | screen_key | 0.6 0.3 0.4 1 | "screen": [0.1, 0.5, 0.1] | 0.6 0.3 0.4 1
edge                       | screen_key | 0.15 0.35 0.15 1 | "screen": [0.1, 0.5, 0.1] | 0.1 0.1 0.1 0.5
edge below the clip        | screen_key | 0.15 0.35 0.15 1 | "screen": [0.1, 0.5, 0.1], "black": 0.5 | 0
edge thinned               | screen_key | 0.15 0.35 0.15 1 | "screen": [0.1, 0.5, 0.1], "black": 0.25 | 0.2/3 0.2/3 0.2/3 1/3
edge at the clip           | screen_key | 0.15 0.35 0.15 1 | "screen": [0.1, 0.5, 0.1], "white": 0.5 | 0.15 0.15 0.15 1
edge thickened             | screen_key | 0.15 0.35 0.15 1 | "screen": [0.1, 0.5, 0.1], "white": 0.75 | 0.35/3 0.35/3 0.35/3 2/3
clips that meet            | screen_key | 0.15 0.35 0.15 1 | "screen": [0.1, 0.5, 0.1], "black": 0.4, "white": 0.4 | 0.15 0.15 0.15 1
spill kept                 | screen_key | 0.15 0.35 0.15 1 | "screen": [0.1, 0.5, 0.1], "despill": 0 | 0.075 0.175 0.075 0.5
matte                      | screen_key | 0.15 0.35 0.15 1 | "screen": [0.1, 0.5, 0.1], "output": "matte" | 0.5
despilled                  | screen_key | 0.15 0.35 0.15 1 | "screen": [0.1, 0.5, 0.1], "output": "despill" | 0.15 0.15 0.15 1
half despilled             | screen_key | 0.15 0.35 0.15 1 | "screen": [0.1, 0.5, 0.1], "output": "despill", "despill": 0.5 | 0.15 0.25 0.15 1
blue                       | screen_key | 0.15 0.15 0.35 1 | "screen": [0.1, 0.1, 0.5] | 0.1 0.1 0.1 0.5
balance 1                  | screen_key | 0.15 0.35 0.05 1 | "screen": [0.1, 0.5, 0.3], "balance": 1 | 0.1 0.1 0 0.5
balance 0                  | screen_key | 0.15 0.35 0.05 1 | "screen": [0.1, 0.5, 0.3], "balance": 0 | 0
as blue as red             | screen_key | 0.2 0.1 0.35 1 | "screen": [0.5, 0.1, 0.5], "output": "matte" | 0
a grey screen keys nothing | screen_key | 0.15 0.35 0.15 1 | "screen": 0.5, "despill": 0 | 0.15 0.35 0.15 1
plate with coverage        | screen_key | 0.075 0.175 0.075 0.5 | "screen": [0.1, 0.5, 0.1] | 0.05 0.05 0.05 0.25
core                       | screen_key | {"image": "edge", "core": "m"} | "screen": [0.1, 0.5, 0.1] | 0.125 0.125 0.125 0.75
garbage                    | screen_key | {"image": "edge", "garbage": "m"} | "screen": [0.1, 0.5, 0.1] | 0.025 0.025 0.025 0.125
garbage over core          | screen_key | {"image": "edge", "core": "full", "garbage": "full"} | "screen": [0.1, 0.5, 0.1] | 0
)";

TEST(Keyers, DrawWhatTheFormulasSay) {
  scene::check_pixels("", ranges);
  scene::check_pixels(scene::constant("edge", {0.15F, 0.35F, 0.15F, 1}) +
                          scene::constant("m", {0, 0, 0, 0.75F}) + scene::constant("full", {1, 1, 1, 1}),
                      screens);
}

// Red beside half a green, in a format of 2 x 1 that the first level covers with one cell: its colour is
// (1, 0.5, 0) of weight 1.5. And from a corner, opaque however far: more cells wide than ten halvings bring
// together.
TEST(EdgeFill, CarriesColourOutwards) {
  scene::write_plate("edge.exr", {2, 1, scene::rgba_names, {1, 0, 0, 1, 0, 0.5F, 0, 0.5F}});
  scene::check_placed_cases(R"(
filled           | edge | edge_fill | | 2 1 | 0 0 2 1 | 0 0 1 0 0 1, 1 0 1/3 2/3 0 1
edges            | edge | edge_fill | "output": "edges" | 2 1 | 0 0 2 1 | 0 0 1 0 0 1, 1 0 1/6 1/3 0 0.5
distrusted       | edge | edge_fill | "trust": 0.5 | 2 1 | 0 0 2 1 | 0 0 1 0 0 1, 1 0 1 0 0 1
distrusted edges | edge | edge_fill | "trust": 0.5, "output": "edges" | 2 1 | 0 0 2 1 | 0 0 1 0 0 1, 1 0 0.5 0 0 0.5
)",
                            2, 1);
  scene::write_plate("corner.exr", {1, 1, scene::rgba_names, {0.25F, 0.5F, 0.125F, 0.5F}, 0, 0, 5000, 3});
  scene::check_placed_cases(
      "corner | corner | edge_fill | | 5000 3 | 0 0 5000 3 |"
      "0 0 0.5 1 0.25 1, 700 0 0.5 1 0.25 1, 2100 0 0.5 1 0.25 1, 4999 0 0.5 1 0.25 1",
      5000, 3);
}

// One colour stays that colour however far it is carried; of two, the nearer prevails.
TEST(EdgeFill, FillsTheFormatFromAfar) {
  scene::Plate plate{99, 1, scene::rgba_names, std::vector<float>(size_t{99} * 4), 1, 40, 101, 67};
  plate.pixels[0] = plate.pixels[98 * 4 + 2] = 0.25F;
  plate.pixels[3] = plate.pixels[98 * 4 + 3] = 0.5F;
  scene::write_plate("far.exr", plate);
  for (const char* size : {R"("size": 2)", R"("size": 7)"}) {
    scene::Scene shot(scene::read_plate("far.exr") + scene::node("n", "p", "edge_fill", size), 101, 67);
    const auto image = shot.image("n");
    ASSERT_EQ(image.extent.window, (host::Box{0, 0, 101, 67}));
    for (const int64_t x : {0, 8, 20, 50, 80, 92, 100}) {
      for (const int64_t y : {0, 26, 33, 66}) {
        const Rgba found = scene::pixel(image, x, y);
        EXPECT_NEAR(found[0] + found[2], 0.5, 1e-5) << x << ", " << y;
        EXPECT_EQ(found[3], 1) << x << ", " << y;
        EXPECT_TRUE(x == 50 || (x < 50) == (found[0] > found[2])) << x << ", " << y;
      }
    }
  }
}

}  // namespace
