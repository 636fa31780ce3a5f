#include "tests/host/render/placed_cases.h"
#include "tests/host/render/transform_plates.h"

#include <string>

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
by whole pixels               | numbered | transform  | "translate": [3, -2] | 4 2 | 3 -2 7 0 | 3 -2 1, 6 -1 14
half a turn                   | numbered | transform  | "rotate": 180 | 4 2 | 0 0 4 2 | 0 0 14, 3 1 1
a quarter turn about a corner | numbered | transform  | "rotate": 90, "center": [-2, -1] | 4 2 | -2 0 0 4 | -1 0 1, -2 0 11, -1 3 4
mirrored                      | numbered | transform  | "scale": [-1, 1] | 4 2 | 0 0 4 2 | 0 0 4, 3 1 11
undone                        | numbered | transform  | "translate": [3, -2], "rotate": 180, "invert": true | 4 2 | 3 -2 7 0 | 3 -2 14
twice as large                | numbered | transform  | "scale": 2, "filter": "nearest", "center": [-2, -1] | 4 2 | 0 0 8 4 | 0 0 1, 1 1 1, 7 3 14
by half a pixel               | numbered | transform  | "translate": [0.5, 0], "filter": "bilinear" | 4 2 | -2 -2 7 4 | 1 0 1.5, 0 0 0.5, 4 1 7, 5 1 0
sharp by half a pixel         | numbered | transform  | "translate": [0.5, 0] | 4 2 | -3 -3 8 5 | 2 0 2.5, 0 0 0.4375, -1 0 -0.0625
a pixel for four              | numbered | transform  | "scale": 0.5, "center": [-2, -1] | 4 2 | -2 -2 4 3 | 0 0 6.5, 1 0 8.5, 2 0 0
no inverse                    | numbered | transform  | "scale": [0, 1] | 4 2 | 0 0 0 0 | 0 0 0
into a box                    | numbered | reformat   | "to": "box", "size": [8, 0], "filter": "nearest" | 8 4 | 0 0 8 4 | 0 0 1, 1 1 1, 6 2 14
fit                           | numbered | reformat   | "size": [8, 8], "filter": "nearest" | 8 8 | 0 2 8 6 | 0 2 1, 7 5 14
fit in the corner             | numbered | reformat   | "size": [8, 8], "filter": "nearest", "center": false | 8 8 | 0 0 8 4 | 0 0 1, 7 3 14
fill                          | numbered | reformat   | "size": [8, 8], "filter": "nearest", "resize": "fill" | 8 8 | 0 0 8 8 | 0 0 2, 7 7 13
fill and keep                 | numbered | reformat   | "size": [8, 8], "filter": "nearest", "resize": "fill", "keep_outside": true | 8 8 | -4 0 12 8 | -1 0 1, 11 7 14
distort                       | numbered | reformat   | "size": [8, 8], "filter": "nearest", "resize": "distort" | 8 8 | 0 0 8 8 | 0 0 1, 7 3 4, 7 4 14
by height                     | numbered | reformat   | "size": [4, 4], "filter": "nearest", "resize": "height" | 4 4 | 0 0 4 4 | 0 0 2, 3 3 13
by width                      | numbered | reformat   | "size": [8, 2], "filter": "nearest", "resize": "width" | 8 2 | 0 0 8 2 | 0 0 1, 7 1 14
cut                           | numbered | reformat   | "size": [2, 8], "resize": "none" | 2 8 | 0 3 2 5 | 0 3 2, 1 4 13
upside down                   | numbered | reformat   | "to": "scale", "flip": true | 4 2 | 0 0 4 2 | 0 0 11, 3 1 4
left to right                 | numbered | reformat   | "to": "scale", "flop": true | 4 2 | 0 0 4 2 | 0 0 4, 3 1 11
turned                        | numbered | reformat   | "to": "scale", "turn": true | 2 4 | 0 0 2 4 | 1 0 1, 0 0 11, 1 3 4
wide pixels                   | numbered | reformat   | "size": [2, 2], "pixel_aspect": 2, "filter": "nearest" | 2 2 | 0 0 2 2 | 0 0 2, 1 1 14
pinned by one point           | numbered | corner_pin | "from": [1, 1], "to": [2, 4] | 4 2 | 1 3 5 5 | 1 3 1
pinned by two                 | numbered | corner_pin | "from": [0, 0, 4, 0], "to": [0, 0, 0, 4] | 4 2 | -2 0 0 4 | -1 0 1, -2 3 14
pinned by three               | numbered | corner_pin | "to": [0, 0, 4, 0, 4, 4], "filter": "nearest" | 4 2 | 0 0 4 4 | 0 1 1, 3 2 14
pinned back                   | numbered | corner_pin | "to": [1, 0, 5, 0, 5, 2, 1, 2], "invert": true | 4 2 | -1 0 3 2 | -1 0 1, 2 1 14
cropped                       | numbered | crop       | "box": [1, -5, 3, 1] | 4 2 | 1 0 3 1 | 1 0 2, 2 0 3, 0 0 0
cropped to its own format     | numbered | crop       | "box": [1, 1, 4, 3], "reformat": true | 3 2 | 0 0 3 1 | 0 0 12, 2 0 14
cropped between pixels        | numbered | crop       | "box": [0.25, 0, 2.75, 1.5] | 4 2 | 0 0 3 1 | 0 0 0.75, 1 0 2, 2 0 2.25
cropped softly                | numbered | crop       | "box": [0, 0, 4, 2], "soft": 2 | 4 2 | 0 0 4 2 | 0 0 0.0625, 1 0 0.375, 3 1 0.875
cropped to nothing            | numbered | crop       | "box": [5, 5, 9, 9] | 4 2 | 0 0 0 0 | 0 0 0
)";

TEST(TransformNodes, PutPixelsWhereTheirKnobsSay) {
  scene::write_numbered("numbered.exr", 4, 2);
  EXPECT_EQ(scene::check_placed_cases(placed, 4, 2), 32);
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

// A clip is an upright box: the corners that it would regain by being turned must stay cut off.
TEST(TransformNodes, DoNotFoldWhatWouldShowAgain) {
  scene::write_numbered("large.exr", 16, 16);
  scene::Scene shot(read_plate("large.exr") +
                        node("cut", "p", "reformat", R"("size": [4, 4], "resize": "none")") +
                        node("wide", "cut", "reformat", R"("size": [16, 16], "resize": "none")") +
                        node("turned", "wide", "transform", R"("rotate": 45, "filter": "nearest")"),
                    16, 16);
  const HostImage image = shot.image("turned");
  // The middle of the plate, and a corner of the box around the turned square of half diagonal 2.83.
  EXPECT_GT(scene::pixel(image, 8, 8)[0], 0);
  EXPECT_EQ(scene::pixel(image, 9, 9)[0], 0);
  EXPECT_EQ(scene::pixel(image, 6, 9)[0], 0);
}

TEST(CornerPin, RefusesPointsThatDoNotPair) {
  scene::write_numbered("numbered.exr", 4, 2);
  const char* const refused[][2] = {
      {R"("to": [1, 2, 3])", R"(knob "to": expected pairs of x and y, found 3 numbers)"},
      {R"("to": [1, 2], "from": [1, 2, 3, 4])",
       R"(knob "from": expected as many points as in "to", 1, found 2)"}};
  for (const auto& [knobs, message] : refused) {
    scene::Scene shot(read_plate("numbered.exr") + node("t", "p", "corner_pin", knobs), 4, 2);
    try {
      shot.image("t");
      ADD_FAILURE() << knobs;
    } catch (const host::frame::FrameError& error) {
      EXPECT_NE(std::string(error.what()).find(message), std::string::npos) << error.what();
    }
  }
}

}  // namespace
