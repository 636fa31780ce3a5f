#include "tests/host/render/placed_cases.h"
#include "tests/host/render/scene.h"

#include <gtest/gtest.h>

namespace {

// A layer of one channel, 4 everywhere, and the picture beside it, 0.5 behind coverage 0.5; and what
// becomes of them on the way.
const std::string before =
    scene::read_plate("data.exr", "picture") +
    scene::node("depth", "[]", "read", R"("file": "data.exr", "layer": "depth")") +
    scene::node("half", "depth", "range_key",
                R"("channel": "red", "range": [0, 8, 9, 9], "output": "matte")") +
    scene::node("q", "depth", "grade", R"("multiply": 0.0625)") +
    scene::node("same", "half", "blur", R"("size": 0)") +
    scene::node("moved", "half", "transform", R"("translate": [2, 0])") +
    scene::node("turned", "half", "transform", R"("rotate": 180, "scale": 2, "filter": "bilinear")") +
    scene::node("cropped", "half", "crop", R"("box": [2, 0, 4, 4])") +
    scene::node("mean", "half", "frame_blend", R"("count": 2)") +
    scene::node("larger", R"(["half", "half"])", "merge", R"("operation": "max")") +
    scene::node("covered", R"(["picture", "half"])", "merge", R"("operation": "copy")") +
    scene::node("coloured", R"(["half", "picture"])", "merge", R"("operation": "copy", "channels": "rgb")") +
    scene::node("red", R"(["half", "depth"])", "copy", R"("alpha": "rgba.red")") +
    scene::node("alpha", R"(["half", "depth"])", "copy", "") +
    scene::node("keyed", "depth", "range_key", R"("channel": "red", "range": [0, 8, 9, 9])");

// `half` is a matte of 4 / 8, in colour and alpha alike. Divided by its alpha it would be 1: with 0.25 added
// and multiplied again, 0.625 instead of 0.75. A layer of one channel is a mask by its values, here 0.25.
// 0.5 is 0.735356983 on the sRGB curve.
constexpr const char* table = R"(
picture               | grade           | "picture"  | "offset": 0.25 | 0.375 0.375 0.375 0.5
depth                 | clamp           | "depth"    | | 1
depth as it is        | blur            | "depth"    | "size": 0 | 4 4 4 1
matte                 | grade           | "same"     | "offset": 0.25 | 0.75 0.75 0.75 0.5
conversion            | ocio_colorspace | "same"     | | 0.735356983 0.735356983 0.735356983 0.5
keyed again           | range_key       | "same"     | "range": [0.25, 1.25, 9, 9], "output": "matte" | 0.25
screen                | screen_key      | "same"     | "output": "foreground" | 0.5 0.5 0.5 1
nothing open          | edge_fill       | "same"     | | 0.5
waiting transform     | grade           | "moved"    | "offset": 0.25 | 0.75 0.75 0.75 0.5
drawn transform       | grade           | "turned"   | "offset": 0.25 | 0.75 0.75 0.75 0.5
cropped               | grade           | "cropped"  | "offset": 0.25 | 0.75 0.75 0.75 0.5
mean of frames        | grade           | "mean"     | "offset": 0.25 | 0.75 0.75 0.75 0.5
larger of two mattes  | grade           | "larger"   | "offset": 0.25 | 0.75 0.75 0.75 0.5
picture over matte    | grade           | "covered"  | "offset": 0.25 | 0.375 0.375 0.375 0.5
matte's colour alone  | grade           | "coloured" | "offset": 0.25 | 0.625 0.625 0.625 0.5
red into alpha        | grade           | "red"      | "offset": 0.25 | 4.125 4.125 4.125 0.5
alpha of no coverage  | grade           | "alpha"    | "offset": 0.25 | 4.25 4.25 4.25 0.5
cut out by a matte    | grade           | "keyed"    | "offset": 0.25 | 2.125 2.125 2.125 0.5
a mask of values      | grade           | {"image": "depth", "mask": "q"} | "multiply": 2 | 5 5 5 1
a mask of a merge     | merge           | {"a": "depth", "b": "q", "mask": "q"} | "operation": "plus" | 1.25
a matte of values     | screen_key      | {"image": "depth", "garbage": "q"} | "output": "matte" | 0.75
)";

TEST(Coverage, IsWhatColourIsDividedByAndNothingElse) {
  scene::Plate plate{4, 4, {"R", "G", "B", "A", "depth.Z"}};
  for (int i = 0; i < 16; ++i) plate.pixels.insert(plate.pixels.end(), {0.25F, 0.25F, 0.25F, 0.5F, 4});
  scene::write_plate("data.exr", plate);
  for (const double scale : {1.0, 0.5}) scene::check_pixels(before, table, 2e-5, 4, scale);
}

}  // namespace
