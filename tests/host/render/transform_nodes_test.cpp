#include "tests/host/render/placed_cases.h"
#include "tests/host/render/scene.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using host::Box;
using host::render::HostImage;
using scene::node;
using scene::read_plate;

// What a node makes of the plate    11 12 13 14
//                                    1  2  3  4
// with some knobs: the size of the format, the window, and pixels as x, y and value. The bilinear filter
// takes the mean half way between two pixels; Catmull-Rom takes 9/16 of both and -1/16 of the next two.
// Pixels twice as wide as they are high show the same on half the columns.
constexpr const char* placed = R"(
undone                        | numbered | transform  | "translate": [3, -2], "rotate": 180, "invert": true | 4 2 | 3 -2 7 0 | 3 -2 14
by half a pixel               | numbered | transform  | "translate": [0.5, 0], "filter": "bilinear" | 4 2 | -2 -2 7 4 | 1 0 1.5, 0 0 0.5, 4 1 7, 5 1 0
sharp by half a pixel         | numbered | transform  | "translate": [0.5, 0] | 4 2 | -3 -3 8 5 | 2 0 2.5, 0 0 0.4375, -1 0 -0.0625
no inverse                    | numbered | transform  | "scale": [0, 1] | 4 2 | 0 0 0 0 | 0 0 0
into a box                    | numbered | reformat   | "to": "box", "size": [8, 0], "filter": "nearest" | 8 4 | 0 0 8 4 | 0 0 1, 1 1 1, 6 2 14
fit                           | numbered | reformat   | "size": [8, 8], "filter": "nearest" | 8 8 | 0 2 8 6 | 0 2 1, 7 5 14
fill                          | numbered | reformat   | "size": [8, 8], "filter": "nearest", "resize": "fill" | 8 8 | 0 0 8 8 | 0 0 2, 7 7 13
fill and keep                 | numbered | reformat   | "size": [8, 8], "filter": "nearest", "resize": "fill", "keep_outside": true | 8 8 | -4 0 12 8 | -1 0 1, 11 7 14
distort                       | numbered | reformat   | "size": [8, 8], "filter": "nearest", "resize": "distort" | 8 8 | 0 0 8 8 | 0 0 1, 7 3 4, 7 4 14
by height                     | numbered | reformat   | "size": [4, 4], "filter": "nearest", "resize": "height" | 4 4 | 0 0 4 4 | 0 0 2, 3 3 13
by width                      | numbered | reformat   | "size": [8, 2], "filter": "nearest", "resize": "width" | 8 2 | 0 0 8 2 | 0 0 1, 7 1 14
mirrored                      | numbered | transform  | "scale": [-1, 1] | 4 2 | 0 0 4 2 | 0 0 4, 3 1 11
a pixel for four              | numbered | transform  | "scale": 0.5, "center": [-2, -1] | 4 2 | -2 -2 4 3 | 0 0 6.5, 1 0 8.5, 2 0 0
fit in the corner             | numbered | reformat   | "size": [8, 8], "filter": "nearest", "center": false | 8 8 | 0 0 8 4 | 0 0 1, 7 3 14
pinned by one point           | numbered | corner_pin | "from": [1, 1], "to": [2, 4] | 4 2 | 1 3 5 5 | 1 3 1
pinned by two                 | numbered | corner_pin | "from": [0, 0, 4, 0], "to": [0, 0, 0, 4] | 4 2 | -2 0 0 4 | -1 0 1, -2 3 14
cut                           | numbered | reformat   | "size": [2, 8], "resize": "none" | 2 8 | 0 3 2 5 | 0 3 2, 1 4 13
turned                        | numbered | reformat   | "to": "scale", "turn": true | 2 4 | 0 0 2 4 | 1 0 1, 0 0 11, 1 3 4
wide pixels                   | numbered | reformat   | "size": [2, 2], "pixel_aspect": 2, "filter": "nearest" | 2 2 | 0 0 2 2 | 0 0 2, 1 1 14
pinned by three               | numbered | corner_pin | "to": [0, 0, 4, 0, 4, 4], "filter": "nearest" | 4 2 | 0 0 4 4 | 0 1 1, 3 2 14
pinned back                   | numbered | corner_pin | "to": [1, 0, 5, 0, 5, 2, 1, 2], "invert": true | 4 2 | -1 0 3 2 | -1 0 1, 2 1 14
cropped                       | numbered | crop       | "box": [1, -5, 3, 1] | 4 2 | 1 0 3 1 | 1 0 2, 2 0 3, 0 0 0
cropped to its own format     | numbered | crop       | "box": [1, 1, 4, 3], "reformat": true | 3 2 | 0 0 3 1 | 0 0 12, 2 0 14
cropped between pixels        | numbered | crop       | "box": [0.25, 0, 2.75, 1.5] | 4 2 | 0 0 3 1 | 0 0 0.75, 1 0 2, 2 0 2.25
cropped softly                | numbered | crop       | "box": [0, 0, 4, 2], "soft": 2 | 4 2 | 0 0 4 2 | 0 0 0.0625, 1 0 0.375, 3 1 0.875
)";

TEST(TransformNodes, PutPixelsWhereTheirKnobsSay) {
  scene::write_numbered("numbered.exr", 4, 2);
  scene::check_placed_cases(placed, 4, 2);
}

int64_t draws_for(scene::Scene& shot, const std::string& name) {
  const int64_t before = shot.renderer().stats().draws;
  shot.image(name);
  return shot.renderer().stats().draws - before;
}

// Resampled twice, the picture would be soft.
TEST(TransformNodes, FoldIntoOneResampling) {
  scene::write_numbered("fold.exr", 6, 6);
  scene::Scene shot(
      read_plate("fold.exr") + node("half", "p", "transform", R"("translate": [0.5, 0.25])") +
          node("whole", "half", "transform", R"("translate": [0.5, 0.75])") +
          node("turned", "whole", "transform", R"("rotate": 30)") +
          node("pinned", "turned", "corner_pin", R"("to": [0, 0, 7, 1, 6, 6, 0, 5])") +
          node("back", "pinned", "corner_pin", R"("to": [0, 0, 7, 1, 6, 6, 0, 5], "invert": true)") +
          node("upright", "back", "transform", R"("rotate": -30)"),
      6, 6);
  EXPECT_EQ(draws_for(shot, "whole"), 0);
  EXPECT_EQ(draws_for(shot, "pinned"), 1);
  const HostImage plate = shot.image("p");
  for (const char* name : {"whole", "upright"}) {
    const HostImage image = shot.image(name);
    EXPECT_EQ(image.extent.window, (Box{1, 1, 7, 7})) << name;
    EXPECT_EQ(image.rgba, plate.rgba) << name;
  }
}

TEST(CornerPin, RefusesPointsThatDoNotPair) {
  scene::write_numbered("numbered.exr", 4, 2);
  const char* const refused[][2] = {
      {R"("to": [1, 2, 3])", R"(knob "to": expected pairs of x and y, found 3 numbers)"},
      {R"("to": [1, 2], "from": [1, 2, 3, 4])",
       R"(knob "from": expected as many points as in "to", 1, found 2)"}};
  for (const auto& [knobs, message] : refused) {
    scene::Scene shot(read_plate("numbered.exr") + node("t", "p", "corner_pin", knobs), 4, 2);
    EXPECT_NE(scene::failure(shot, "t").find(message), std::string::npos) << scene::failure(shot, "t");
  }
}

TEST(MotionBlur, SpreadsAMovingEdge) {
  scene::write_plate(scene::folder() / "white.exr",
                     {20, 2, {"R", "G", "B", "A"}, std::vector<float>(160, 1)});
  const std::string keys = R"("translate": [{"keys": [[0, 0], [10, 100]]}, 0], "motion_blur": 1)";
  scene::Scene shot(read_plate("white.exr") +
                        node("t", "p", "transform", keys + R"(, "shutter": 1, "shutter_position": "start")") +
                        node("still", "p", "transform", R"("translate": [3, 0], "motion_blur": 1)") +
                        node("before", "t", "transform", R"("translate": [0.5, 0])") +
                        node("after", "before", "transform", R"("translate": [-0.5, 0])"),
                    20, 2);
  // Ten pixels a frame, a sample each and one more: at frame 2 they lie at 20, 21, ..., 30.
  for (const char* name : {"t", "after"}) {
    const HostImage image = shot.image(name, 2);
    for (int64_t x = 15; x < 55; ++x) {
      const auto inside = static_cast<double>(std::clamp<int64_t>(std::min(x - 19, 50 - x), 0, 11));
      EXPECT_NEAR(scene::pixel(image, x, 1)[3], inside / 11, 1e-6) << name << " " << x;
    }
  }
  EXPECT_EQ(shot.image("still", 2).extent.window, (Box{3, 0, 23, 2}));
}

// A shutter open from frame 3 to 7 with a sample at each: the mean of what stands at those frames.
TEST(MotionBlur, IsTheMeanOfItsSamples) {
  scene::write_numbered("moving.exr", 24, 16);
  const std::string moves =
      R"("rotate": {"keys": [[0, 0], [10, 20]]}, "translate": [0, {"keys": [[0, 0, "smooth"], [10, 3]]}])";
  // The furthest corner travels some 3.5 pixels, so that 1.05 samples a pixel are 5.
  scene::Scene shot(read_plate("moving.exr") + node("s", "p", "transform", moves) +
                        node("b", "p", "transform",
                             moves + R"(, "motion_blur": 1.05, "shutter": 4, "shutter_position": "start")"),
                    24, 16);
  // Values up to 174, and float positions right to some 5e-6 of a pixel.
  const HostImage blurred = shot.image("b", 3);
  std::vector<HostImage> stills;
  for (int64_t frame = 3; frame <= 7; ++frame) stills.push_back(shot.image("s", frame));
  for (int64_t y = -12; y < 28; ++y) {
    for (int64_t x = -12; x < 36; ++x) {
      double sum = 0;
      for (const HostImage& still : stills) sum += static_cast<double>(scene::pixel(still, x, y)[0]);
      ASSERT_NEAR(scene::pixel(blurred, x, y)[0], sum / 5, 1e-3) << x << ", " << y;
    }
  }
}

}  // namespace
