#include "tests/host/render/placed_cases.h"
#include "tests/host/render/scene.h"
#include "tests/support/table.h"

#include <gtest/gtest.h>

namespace {

using scene::Rgba;

// What the tables below merge: two colours; two where a formula would divide by 0, exceeds 1 or takes its
// other branch, both with alpha below 0.5; two a shade below the sum of alphas at which disjoint-over
// changes; a mask of alpha 0.25 and red 0.5; and a node that is disabled.
const std::string before =
    scene::constant("A", {0.5F, 0.25F, 0, 0.5F}) + scene::constant("B", {0.25F, 0.75F, 0.5F, 0.75F}) +
    scene::constant("C", {3, 0, 1, 0.375F}) + scene::constant("D", {0.5F, 0, 1, 0.25F}) +
    scene::constant("E", {0.5F, 0.25F, 0, 0.625F}) + scene::constant("F", {0.25F, 0.5F, 0.125F, 0.34375F}) +
    scene::constant("M", {0.5F, 0, 0, 0.25F}) +
    R"(, {"name": "off", "type": "clamp", "inputs": "A", "knobs": {"high": 0.1}, "disabled": true, "comment": "-"})";

// Alpha masking: A/4 + B/2 + 3/8 f(A/a, B/b), with A/a = (1, 1/2, 0) and B/b = (1/3, 1, 2/3).
constexpr const char* table = R"(
atop          | merge | ["A", "B"] | "operation": "atop" | 0.5 0.5625 0.25 0.75
average       | merge | ["A", "B"] | "operation": "average" | 0.375 0.5 0.25 0.625
color-burn    | merge | ["A", "B"] | "operation": "color-burn" | 0 0 0 0.5
color-dodge   | merge | ["A", "B"] | "operation": "color-dodge" | 0.5 1 0.5 1
conjoint-over | merge | ["A", "B"] | "operation": "conjoint-over" | 7/12 0.5 1/6 0.75
copy          | merge | ["A", "B"] | "operation": "copy" | 0.5 0.25 0 0.5
difference    | merge | ["A", "B"] | "operation": "difference" | 0.25 0.5 0.5 0.25
disjoint-over | merge | ["A", "B"] | "operation": "disjoint-over" | 2/3 0.75 1/3 1
divide        | merge | ["A", "B"] | "operation": "divide" | 2 1/3 0 2/3
exclusion     | merge | ["A", "B"] | "operation": "exclusion" | 0.5 0.625 0.5 0.5
from          | merge | ["A", "B"] | "operation": "from" | -0.25 0.5 0.5 0.25
geometric     | merge | ["A", "B"] | "operation": "geometric" | 1/3 0.375 0 0.6
hard-light    | merge | ["A", "B"] | "operation": "hard-light" | 0.25 0.375 0 0.75
hypot         | merge | ["A", "B"] | "operation": "hypot" | 0.559017 0.7905694 0.5 0.9013878
in            | merge | ["A", "B"] | "operation": "in" | 0.375 0.1875 0 0.375
mask          | merge | ["A", "B"] | "operation": "mask" | 0.125 0.375 0.25 0.375
matte         | merge | ["A", "B"] | "operation": "matte" | 0.375 0.5 0.25 0.625
max           | merge | ["A", "B"] | "operation": "max" | 0.5 0.75 0.5 0.75
min           | merge | ["A", "B"] | "operation": "min" | 0.25 0.25 0 0.5
minus         | merge | ["A", "B"] | "operation": "minus" | 0.25 -0.5 -0.5 -0.25
multiply      | merge | ["A", "B"] | "operation": "multiply" | 0.125 0.1875 0 0.375
out           | merge | ["A", "B"] | "operation": "out" | 0.125 0.0625 0 0.125
over          | merge | ["A", "B"] | "operation": "over" | 0.625 0.625 0.25 0.875
overlay       | merge | ["A", "B"] | "operation": "overlay" | 0.25 0.625 0 0.75
plus          | merge | ["A", "B"] | "operation": "plus" | 0.75 1 0.5 1.25
screen        | merge | ["A", "B"] | "operation": "screen" | 0.625 0.8125 0.5 0.875
soft-light    | merge | ["A", "B"] | "operation": "soft-light" | 39/128 213/256 0.25 141/128
stencil       | merge | ["A", "B"] | "operation": "stencil" | 0.125 0.375 0.25 0.375
under         | merge | ["A", "B"] | "operation": "under" | 0.375 0.8125 0.5 0.875
xor           | merge | ["A", "B"] | "operation": "xor" | 0.25 0.4375 0.25 0.5
color-burn    | merge | ["C", "D"] | "operation": "color-burn" | 5/6 0 1 0
color-dodge   | merge | ["C", "D"] | "operation": "color-dodge" | 1 0 1 0.4
conjoint-over | merge | ["C", "D"] | "operation": "conjoint-over" | 3 0 1 0.375
disjoint-over | merge | ["C", "D"] | "operation": "disjoint-over" | 3.5 0 2 0.625
divide        | merge | ["C", "D"] | "operation": "divide" | 6 0 1 1.5
geometric     | merge | ["C", "D"] | "operation": "geometric" | 6/7 0 1 0.3
screen        | merge | ["C", "D"] | "operation": "screen" | 3 0 1 0.53125
soft-light    | merge | ["C", "D"] | "operation": "soft-light" | 3 0 2 0.244140625
disjoint-over | merge | ["E", "F"] | "operation": "disjoint-over" | 0.75 0.75 0.125 0.96875
 | merge | ["A", "B"] | "mix": 0.5 | 0.4375 0.6875 0.375 0.8125
 | merge | ["A", "B"] | "mix": 0 | 0.25 0.75 0.5 0.75
 | merge | ["A", "B", "M"] | | 0.34375 0.71875 0.4375 0.78125
 | merge | ["A", "B", "M"] | "invert_mask": true | 0.53125 0.65625 0.3125 0.84375
 | merge | ["A", "B", "M"] | "mask_channel": "red" | 0.4375 0.6875 0.375 0.8125
 | merge | ["A", "B", "M"] | "mask_channel": "red", "mix": 0.5 | 0.34375 0.71875 0.4375 0.78125
 | merge | ["A", "B", "M"] | "mask_channel": "" | 0.625 0.625 0.25 0.875
 | merge | ["A", "B"] | "channels": "rgb" | 0.625 0.625 0.25 0.75
 | merge | ["A", "B"] | "channels": "alpha" | 0.25 0.75 0.5 0.875
 | merge | ["A", "B"] | "channels": "none" | 0.25 0.75 0.5 0.75
 | merge | ["A", "B"] | "a_channels": "rgb" | 0.75 1 0.5 0.75
 | merge | ["A", "B"] | "a_channels": "none" | 0.25 0.75 0.5 0.75
 | merge | ["A", "B"] | "b_channels": "alpha" | 0.5 0.25 0 0.875
 | merge | ["A", "B"] | "operation": "multiply", "alpha_masking": true | 0.375 0.625 0.25 0.875
 | merge | ["A", "B"] | "operation": "plus", "alpha_masking": true | 0.75 1 0.5 0.875
 | merge | ["A", "B"] | "operation": "over", "alpha_masking": true | 0.625 0.625 0.25 0.875
alpha by default | copy | ["A", "B"] | | 0.25 0.75 0.5 0.5
crossed | copy | ["A", "B"] | "red": "rgba.alpha", "blue": "rgba.green", "alpha": "none" | 0.5 0.75 0.25 0.75
nothing | copy | ["A", "B"] | "alpha": "none" | 0.25 0.75 0.5 0.75
routed | shuffle | ["A"] | "routing": "2 a 0 3 r 0 0 white 0 0 a 0 3" | 0.5 0.25 0 1
no routes | shuffle | ["A"] | "routing": "" | 0.5 0.25 0 0.5
black | shuffle | ["A"] | "routing": "1 black 0 0 g 0 1" | 0.5 0 0 0.5
from the second | shuffle | ["A", "B"] | "routing": "1 b 1 2 r 0 0" | 0.5 0.25 0 0.5
green of the second | shuffle | ["A", "B"] | "routing": "1 g 1 1 b 0 2" | 0.5 0.25 0.75 0.5
the second is not there | shuffle | ["A"] | "routing": "1 g 1 1 g 0 1" | 0.5 0 0 0.5
in words | shuffle | ["A", "B"] | "routing": {"r": "alpha", "blue": "second.green", "a": "white"} | 0.5 0.25 0.75 1
past a disabled node | shuffle | ["off"] | | 0.5 0.25 0 0.5
the other group | shuffle | ["A", "B"] | "routing": "2 g 1 1 r 1 0 white 0 0 r 0 0", "group": "second" | 0.75 0.25 0 0.5
 | dissolve | ["A", "B", "M"] | "which": 0 | 0.5 0.25 0 0.5
 | dissolve | ["A", "B", "M"] | "which": 0.25 | 0.4375 0.375 0.125 0.5625
 | dissolve | ["A", "B", "M"] | "which": 1.5 | 0.375 0.375 0.25 0.5
 | dissolve | ["A", "B", "M"] | "which": -3 | 0.5 0.25 0 0.5
 | dissolve | ["A", "B", "M"] | "which": 7 | 0.5 0 0 0.25
 | switch | ["A", "B", "M"] | "which": 0.9 | 0.5 0.25 0 0.5
 | switch | ["A", "B", "M"] | "which": 1 | 0.25 0.75 0.5 0.75
 | switch | ["A", "B", "M"] | "which": 7 | 0.5 0 0 0.25
)";

TEST(Merge, DrawsWhatTheFormulasSayWhereItIsTold) {
  scene::check_pixels(before, table);
}

// Of alphas of 0.5 and 0.75: with B's alpha, with 0 in its place, and half of the former.
TEST(ChannelMerge, HasFourteenOperations) {
  for (const auto& [operation, both, with_zero] : support::rows<3>(R"(
union      | 0.875 | 0.5
absminus   | 0.25  | 0.5
b if not a | 0.5   | 0.5
divide     | 2/3   | 0
from       | 0.25  | -0.5
in         | 0.375 | 0
max        | 0.75  | 0.5
min        | 0.5   | 0
minus      | -0.25 | 0.5
multiply   | 0.375 | 0
out        | 0.125 | 0.5
plus       | 1.25  | 0.5
stencil    | 0.375 | 0
xor        | 0.5   | 0.5
)")) {
    const std::string node = R"(| channel_merge | ["A", "B"] | "operation": ")" + operation;
    scene::check_pixels(before, node + "\" | 0.25 0.75 0.5 " + both);
    scene::check_pixels(
        before, node + R"(", "b_channel": "none", "output": "rgba.green" | 0.25 )" + with_zero + " 0.5 0.75");
  }
  scene::check_pixels(before, R"(
mixed | channel_merge | ["A", "B"] | "operation": "plus", "mix": 0.5 | 0.25 0.75 0.5 1
zero  | channel_merge | ["A", "B"] | "operation": "b if not a", "a_channel": "rgba.blue" | 0.25 0.75 0.5 0.75
)");
}

// A pixel of A inside B's window, which lies inside the format: results have the window of both, and
// each image is transparent black outside its own.
TEST(Merge, LaysWindowsOverEachOther) {
  scene::write_plate("a.exr", {1, 1, scene::rgba_names, {1, 1, 1, 1}, 4, 0, 6, 6});
  scene::write_plate("b.exr", {3, 3, scene::rgba_names, std::vector<float>(36, 0.5F), 2, 1, 6, 6});
  const std::string plates = scene::read_plate("a.exr", "a") + scene::read_plate("b.exr", "b");
  for (const char* type : {"merge", "copy", "channel_merge"}) {
    scene::Scene shot(plates + scene::node("n", R"({"a": "a", "b": "b"})", type, ""), 6, 6);
    const auto image = shot.image("n");
    EXPECT_EQ(image.extent.window, (host::Box{2, 2, 5, 6})) << type;
    EXPECT_EQ(scene::pixel(image, 4, 5)[3], 1) << type;
    EXPECT_EQ(scene::pixel(image, 2, 5)[3], 0) << type;
    EXPECT_EQ(scene::pixel(image, 2, 2)[0], 0.5F) << type;
  }
  // White alpha has pixels all over the format.
  scene::Scene shot(plates + scene::node("n", "b", "shuffle", R"("routing": "1 white 0 0 a 0 3")"), 6, 6);
  const auto image = shot.image("n");
  EXPECT_EQ(image.extent.window, (host::Box{0, 0, 6, 6}));
  EXPECT_EQ(scene::pixel(image, 0, 0), (Rgba{0, 0, 0, 1}));
}

TEST(Knobs, ThatMeanNothingAreRefused) {
  scene::check_refusals(before, R"(
merge         | ["A", "B"] | "mask_channel": "depth" | knob "mask_channel": expected a channel (red, green, blue,
merge         | ["A", "B"] | "mask_channel": "rgba.alhpa" | knob "mask_channel": expected a channel
merge         | ["A", "B"] | "mask_channel": " rgba.Red " | nothing
copy          | ["A", "B"] | "red": "depth.Z" | knob "red": expected a channel
copy          | ["A", "B"] | "red": "alpha", "blue": "" | nothing
channel_merge | ["A", "B"] | "a_channel": "depth.Z" | knob "a_channel": expected a channel
channel_merge | ["A", "B"] | "output": "rgba.alhpa" | node "n": knob "output": expected a channel (red, green, blue, alpha, none), found "rgba.alhpa"
channel_merge | ["A", "B"] | "a_channel": "{rgba.Blue}", "b_channel": "-rgba.red", "output": "g" | nothing
shuffle       | ["A", "B"] | "routing": "1 rde 0 0 r 0 0" | knob "routing": route 1: expected a source channel (red,
shuffle       | ["A", "B"] | "routing": "2 r 0 0 g 0 1 r 0 0 gren 0 1" | route 2: expected an output channel (red,
shuffle       | ["A", "B"] | "routing": "1 r 2 0 g 0 1" | route 1: expected input 0 or 1 of a source, found "2"
shuffle       | ["A", "B"] | "routing": "1 r 0 0 g 2 1" | route 1: expected output group 0 or 1, found "2"
shuffle       | ["A", "B"] | "routing": "2 r 0 0 g 0 1" | expected how many routes, then six words for each, found "2" and 6 words
shuffle       | ["A", "B"] | "routing": "r to g" | expected how many routes
shuffle       | ["A", "B"] | "routing": "1 rgba.x 1 0 w 1 -1" | nothing
shuffle       | ["A", "B"] | "routing": "r=alhpa" | expected a source channel (red, green, blue, alpha, black, white), found "alhpa"
shuffle       | ["A", "B"] | "routing": {"red": "second.g", "a": "black"} | nothing
shuffle       | ["A", "B"] | "routing": {"red": 1} | knob "routing": expected
corner_pin    | A          | "to": [1, 2, 3] | knob "to": expected pairs of x and y, found 3 numbers
corner_pin    | A          | "to": [1, 2], "from": [1, 2, 3, 4] | knob "from": expected as many points as in "to", 1, found 2
read          | []         | "file": "gone.%04d.exr", "first": 2, "last": 4 | gone.0001.exr: the sequence has frames 2 to 4
read          | []         | "layer": "x" | frame 1: knob "file": expected a path, found none
)");
}

}  // namespace
