#include "tests/host/nodes/probe.h"

#include <vector>

namespace {

using probe::Rgba;

constexpr Rgba nothing = {0, 0, 0, 0};

Rgba all(double value) {
  const auto each = static_cast<float>(value);
  return {each, each, each, each};
}

struct Case {
  const char* what;
  Rgba image;
  const char* knobs;
  Rgba expected;
};

TEST(RangeKey, RisesAndFallsOverItsRange) {
  constexpr Rgba sky = {0.25F, 0.5F, 1, 1};
  constexpr Rgba half = {0.25F, 0.25F, 0.25F, 0.5F};  // 0.5 behind coverage 0.5
  const Case cases[] = {
      // 0.2126 / 4 + 0.7152 / 2 + 0.0722
      {"luminance", sky, R"("output": "matte")", all(0.48295)},
      {"rising", sky, R"("channel": "red", "range": [0, 0.5, 0.5, 1], "output": "matte")", all(0.5)},
      {"falling", sky, R"("channel": "blue", "range": [0, 0, 0.5, 1.5], "output": "matte")", all(0.5)},
      {"put in order", sky, R"("channel": "red", "range": [0.5, 0, 3, 2], "output": "matte")", all(0.5)},
      {"no gap before the fall", sky, R"("channel": "green", "range": [0, 0.5, 0.1, 1], "output": "matte")",
       all(1)},
      {"step", sky, R"("channel": "red", "range": [0.25, 0.25, 9, 9], "output": "matte")", all(1)},
      {"below a step", sky, R"("channel": "red", "range": [0.26, 0.26, 9, 9], "output": "matte")", nothing},
      {"smallest", sky, R"("channel": "min", "output": "matte")", all(0.25)},
      {"largest", sky, R"("channel": "max", "range": [0, 2, 9, 9], "output": "matte")", all(0.5)},
      {"saturation", sky, R"("channel": "saturation", "output": "matte")", all(0.75)},
      {"inverted", sky, R"("channel": "green", "range": [0, 2, 9, 9], "invert": true, "output": "matte")",
       all(0.75)},
      {"image", half, R"("channel": "red")", {0.125F, 0.125F, 0.125F, 0.25F}},
      {"matte of coverage", half, R"("channel": "red", "output": "matte")", all(0.25)},
      {"into alpha", half, R"("channel": "red", "output": "alpha")", {0.25F, 0.25F, 0.25F, 0.25F}},
      {"alpha itself", half, R"("channel": "alpha", "output": "matte")", all(0.25)},
  };
  for (const Case& each : cases) {
    scene::Scene shot(
        probe::constant("p", each.image) + probe::node("range_key", R"("image": "p")", each.knobs), 2, 2);
    probe::expect_near(scene::pixel(shot.image("n"), 1, 0), each.expected, 1e-6, each.what);
  }
}

// Foreground (0.1, 0.1, 0.1) of coverage 0.5 in front of the screen (0.1, 0.5, 0.1) is (0.15, 0.35,
// 0.15): excess 0.2 of the screen's 0.4.
TEST(ScreenKey, TakesTheScreenOut) {
  constexpr Rgba edge = {0.15F, 0.35F, 0.15F, 1};
  constexpr Rgba front = {0.1F, 0.1F, 0.1F, 0.5F};
  const Case cases[] = {
      {"the screen", {0.1F, 0.5F, 0.1F, 1}, "", nothing},
      {"the screen in shadow", {0.05F, 0.25F, 0.05F, 1}, "", {0, 0, 0, 0.5F}},
      {"brighter than the screen", {0.2F, 1, 0.2F, 1}, "", nothing},
      {"solid", {0.6F, 0.3F, 0.4F, 1}, "", {0.6F, 0.3F, 0.4F, 1}},
      {"edge", edge, "", front},
      {"edge below the clip", edge, R"("black": 0.5)", nothing},
      // Matte 1/3 of what was 1/2.
      {"edge thinned", edge, R"("black": 0.25)", {0.2F / 3, 0.2F / 3, 0.2F / 3, 1.0F / 3}},
      {"edge at the clip", edge, R"("white": 0.5)", {0.15F, 0.15F, 0.15F, 1}},
      // Matte 2/3: a third of the way from the front to the plate without spill.
      {"edge thickened", edge, R"("white": 0.75)", {0.35F / 3, 0.35F / 3, 0.35F / 3, 2.0F / 3}},
      {"clips that meet", edge, R"("black": 0.4, "white": 0.4)", {0.15F, 0.15F, 0.15F, 1}},
      {"spill kept", edge, R"("despill": 0)", {0.075F, 0.175F, 0.075F, 0.5F}},
      {"matte", edge, R"("output": "matte")", all(0.5)},
      {"despilled", edge, R"("output": "despill")", {0.15F, 0.15F, 0.15F, 1}},
      {"half despilled", edge, R"("output": "despill", "despill": 0.5)", {0.15F, 0.25F, 0.15F, 1}},
      {"blue", {0.15F, 0.15F, 0.35F, 1}, R"("screen": [0.1, 0.1, 0.5])", front},
      {"red", {0.35F, 0.15F, 0.15F, 1}, R"("screen": [0.5, 0.1, 0.1])", front},
      // Against red alone 0.2 of 0.4, against blue alone 0.3 of 0.2.
      {"balance 1",
       {0.15F, 0.35F, 0.05F, 1},
       R"("screen": [0.1, 0.5, 0.3], "balance": 1)",
       {0.1F, 0.1F, 0, 0.5F}},
      {"balance 0", {0.15F, 0.35F, 0.05F, 1}, R"("screen": [0.1, 0.5, 0.3], "balance": 0)", nothing},
      {"a grey screen keys nothing", edge, R"("screen": 0.5, "despill": 0)", edge},
      {"plate with coverage", {0.075F, 0.175F, 0.075F, 0.5F}, "", {0.05F, 0.05F, 0.05F, 0.25F}},
  };
  for (const Case& each : cases) {
    std::string knobs = each.knobs;
    if (knobs.find("screen") == std::string::npos) {
      knobs = R"("screen": [0.1, 0.5, 0.1])" + (knobs.empty() ? knobs : ", " + knobs);
    }
    scene::Scene shot(probe::constant("p", each.image) + probe::node("screen_key", R"("image": "p")", knobs),
                      2, 2);
    probe::expect_near(scene::pixel(shot.image("n"), 1, 0), each.expected, 1e-6, each.what);
  }
}

TEST(ScreenKey, FollowsItsMattes) {
  const std::string plate = probe::constant("p", {0.15F, 0.35F, 0.15F, 1}) +
                            probe::constant("m", {0, 0, 0, 0.75F}) + probe::constant("full", all(1));
  const struct {
    const char* inputs;
    Rgba expected;
  } cases[] = {
      // Half way from the front (0.1, 0.5) to the solid plate (0.15, 1).
      {R"("image": "p", "core": "m")", {0.125F, 0.125F, 0.125F, 0.75F}},
      {R"("image": "p", "garbage": "m")", {0.025F, 0.025F, 0.025F, 0.125F}},
      {R"("image": "p", "core": "full", "garbage": "full")", nothing},
  };
  for (const auto& each : cases) {
    scene::Scene shot(plate + probe::node("screen_key", each.inputs, R"("screen": [0.1, 0.5, 0.1])"), 2, 2);
    probe::expect_near(scene::pixel(shot.image("n"), 1, 0), each.expected, 1e-6, each.inputs);
  }
}

// Red beside half a green, in a format of 2 x 1 that the first level covers with one cell: its colour
// is (1, 0.5, 0) of weight 1.5.
TEST(EdgeFill, CarriesColourOutwards) {
  scene::Plate plate;
  plate.width = 2;
  plate.height = 1;
  plate.pixels = {1, 0, 0, 1, 0, 0.5F, 0, 0.5F};
  scene::write_plate(scene::folder() / "edge.exr", plate);
  const Case cases[] = {
      {"filled", {}, "", {1.0F / 3, 2.0F / 3, 0, 1}},
      {"edges", {}, R"("output": "edges")", {1.0F / 6, 1.0F / 3, 0, 0.5F}},
      {"distrusted", {}, R"("trust": 0.5)", {1, 0, 0, 1}},
      {"distrusted edges", {}, R"("trust": 0.5, "output": "edges")", {0.5F, 0, 0, 0.5F}},
  };
  for (const Case& each : cases) {
    scene::Scene shot(R"({"name": "p", "type": "read", "knobs": {"file": "edge.exr"}}, )" +
                          probe::node("edge_fill", R"("image": "p")", each.knobs),
                      2, 1);
    const auto image = shot.image("n");
    probe::expect_near(scene::pixel(image, 0, 0), {1, 0, 0, 1}, 1e-6, each.what);
    probe::expect_near(scene::pixel(image, 1, 0), each.expected, 1e-6, each.what);
  }
}

// Opaque everywhere, however far: more cells wide than ten halvings bring together.
TEST(EdgeFill, FillsAnImageOfAnySize) {
  scene::Plate plate{1, 1, {"R", "G", "B", "A"}, {0.25F, 0.5F, 0.125F, 0.5F}, 0, 0, 5000, 3};
  scene::write_plate(scene::folder() / "corner.exr", plate);
  scene::Scene shot(R"({"name": "p", "type": "read", "knobs": {"file": "corner.exr"}}, )" +
                        probe::node("edge_fill", R"("image": "p")", ""),
                    5000, 3);
  const auto image = shot.image("n");
  for (const int64_t x : {0, 700, 2100, 4999})
    probe::expect_near(scene::pixel(image, x, 0), {0.5F, 1, 0.25F, 1}, 1e-5, std::to_string(x));
}

// One colour stays that colour however far it is carried; of two, the nearer prevails.
TEST(EdgeFill, FillsTheFormatFromAfar) {
  scene::Plate plate;
  plate.width = 99;
  plate.height = 1;
  plate.y = 40;
  plate.x = 1;
  plate.full_width = 101;
  plate.full_height = 67;
  plate.pixels.assign(size_t{99} * 4, 0);
  for (const size_t at : {size_t{0}, size_t{98}}) {
    plate.pixels[4 * at + (at == 0 ? 0 : 2)] = 0.25F;
    plate.pixels[4 * at + 3] = 0.5F;
  }
  scene::write_plate(scene::folder() / "far.exr", plate);
  for (const char* size : {R"("size": 2)", R"("size": 7)"}) {
    scene::Scene shot(R"({"name": "p", "type": "read", "knobs": {"file": "far.exr"}}, )" +
                          probe::node("edge_fill", R"("image": "p")", size),
                      101, 67);
    const auto image = shot.image("n");
    ASSERT_EQ(image.extent.window, (host::Box{0, 0, 101, 67}));
    for (const int64_t x : {0, 8, 20, 50, 80, 92, 100}) {
      for (const int64_t y : {0, 26, 33, 66}) {
        const Rgba found = scene::pixel(image, x, y);
        EXPECT_NEAR(found[0] + found[2], 0.5, 1e-5) << x << ", " << y;
        EXPECT_EQ(found[3], 1) << x << ", " << y;
        const size_t nearer = x < 50 ? 0 : 2;
        if (x != 50) {
          EXPECT_GT(found[nearer], found[2 - nearer]) << x << ", " << y;
        }
      }
    }
  }
}

}  // namespace
