#include "tests/host/nodes/probe.h"

#include <vector>

namespace {

using probe::Rgba;

constexpr Rgba A = {0.5F, 0.25F, 0, 0.5F};
constexpr Rgba B = {0.25F, 0.75F, 0.5F, 0.75F};
constexpr Rgba over = {0.625F, 0.625F, 0.25F, 0.875F};

// The pixel that node "n" makes of the constants A (and a second pair), B, a mask of alpha 0.25 and
// red 0.5.
Rgba rendered(const std::string& node, const Rgba& a = A, const Rgba& b = B) {
  scene::Scene shot(
      probe::constant("A", a) + probe::constant("B", b) + probe::constant("M", {0.5F, 0, 0, 0.25F}) + node, 2,
      2);
  return scene::pixel(shot.image("n"), 1, 1);
}

std::string merge(const std::string& knobs, bool masked = false) {
  return probe::node("merge", std::string(R"("a": "A", "b": "B")") + (masked ? R"(, "mask": "M")" : ""),
                     knobs);
}

TEST(Merge, HasThirtyOperations) {
  const struct {
    const char* operation;
    Rgba expected;
  } cases[] = {
      {"atop", {0.5F, 0.5625F, 0.25F, 0.75F}},
      {"average", {0.375F, 0.5F, 0.25F, 0.625F}},
      {"color-burn", {0, 0, 0, 0.5F}},
      {"color-dodge", {0.5F, 1, 0.5F, 1}},
      {"conjoint-over", {7.0F / 12, 0.5F, 1.0F / 6, 0.75F}},
      {"copy", A},
      {"difference", {0.25F, 0.5F, 0.5F, 0.25F}},
      {"disjoint-over", {2.0F / 3, 0.75F, 1.0F / 3, 1}},
      {"divide", {2, 1.0F / 3, 0, 2.0F / 3}},
      {"exclusion", {0.5F, 0.625F, 0.5F, 0.5F}},
      {"from", {-0.25F, 0.5F, 0.5F, 0.25F}},
      {"geometric", {1.0F / 3, 0.375F, 0, 0.6F}},
      {"hard-light", {0.25F, 0.375F, 0, 0.75F}},
      {"hypot", {0.559017F, 0.7905694F, 0.5F, 0.9013878F}},
      {"in", {0.375F, 0.1875F, 0, 0.375F}},
      {"mask", {0.125F, 0.375F, 0.25F, 0.375F}},
      {"matte", {0.375F, 0.5F, 0.25F, 0.625F}},
      {"max", {0.5F, 0.75F, 0.5F, 0.75F}},
      {"min", {0.25F, 0.25F, 0, 0.5F}},
      {"minus", {0.25F, -0.5F, -0.5F, -0.25F}},
      {"multiply", {0.125F, 0.1875F, 0, 0.375F}},
      {"out", {0.125F, 0.0625F, 0, 0.125F}},
      {"over", over},
      {"overlay", {0.25F, 0.625F, 0, 0.75F}},
      {"plus", {0.75F, 1, 0.5F, 1.25F}},
      {"screen", {0.625F, 0.8125F, 0.5F, 0.875F}},
      {"soft-light", {39.0F / 128, 213.0F / 256, 0.25F, 141.0F / 128}},
      {"stencil", {0.125F, 0.375F, 0.25F, 0.375F}},
      {"under", {0.375F, 0.8125F, 0.5F, 0.875F}},
      {"xor", {0.25F, 0.4375F, 0.25F, 0.5F}},
  };
  for (const auto& each : cases) {
    const std::string knobs = std::string(R"("operation": ")") + each.operation + "\"";
    probe::expect_near(rendered(merge(knobs)), each.expected, 1e-6, each.operation);
  }
}

// Where a formula would divide by 0, exceeds 1 or takes its other branch. Both have alpha below 0.5.
TEST(Merge, HoldsAtTheEdgesOfItsFormulas) {
  constexpr Rgba a = {3, 0, 1, 0.375F};
  constexpr Rgba b = {0.5F, 0, 1, 0.25F};
  const struct {
    const char* operation;
    Rgba expected;
  } cases[] = {
      {"color-burn", {5.0F / 6, 0, 1, 0}},
      {"color-dodge", {1, 0, 1, 0.4F}},
      {"conjoint-over", a},
      {"disjoint-over", {3.5F, 0, 2, 0.625F}},
      {"divide", {6, 0, 1, 1.5F}},
      {"geometric", {6.0F / 7, 0, 1, 0.3F}},
      {"screen", {3, 0, 1, 0.53125F}},
      {"soft-light", {3, 0, 2, 0.25F * (0.75F + 0.25F * 0.90625F)}},
  };
  for (const auto& each : cases) {
    const std::string knobs = std::string(R"("operation": ")") + each.operation + "\"";
    probe::expect_near(rendered(merge(knobs), a, b), each.expected, 1e-6, each.operation);
  }
}

// A shade below the sum of alphas at which the operation changes.
TEST(Merge, DisjointOverAddsUpToAFullAlpha) {
  probe::expect_near(rendered(merge(R"("operation": "disjoint-over")"), {0.5F, 0.25F, 0, 0.625F},
                              {0.25F, 0.5F, 0.125F, 0.34375F}),
                     {0.75F, 0.75F, 0.125F, 0.96875F}, 1e-6, "alphas of 0.97 together");
}

TEST(Merge, WritesWhereItIsTold) {
  const struct {
    const char* knobs;
    bool masked;
    Rgba expected;
  } cases[] = {
      {R"("mix": 0.5)", false, {0.4375F, 0.6875F, 0.375F, 0.8125F}},
      {R"("mix": 0)", false, B},
      {"", true, {0.34375F, 0.71875F, 0.4375F, 0.78125F}},
      {R"("invert_mask": true)", true, {0.53125F, 0.65625F, 0.3125F, 0.84375F}},
      {R"("mask_channel": "red")", true, {0.4375F, 0.6875F, 0.375F, 0.8125F}},
      {R"("mask_channel": "red", "mix": 0.5)", true, {0.34375F, 0.71875F, 0.4375F, 0.78125F}},
      {R"("mask_channel": "")", true, over},
      {R"("channels": "rgb")", false, {0.625F, 0.625F, 0.25F, 0.75F}},
      {R"("channels": "alpha")", false, {0.25F, 0.75F, 0.5F, 0.875F}},
      {R"("channels": "none")", false, B},
      {R"("a_channels": "rgb")", false, {0.75F, 1, 0.5F, 0.75F}},
      {R"("a_channels": "none")", false, B},
      {R"("b_channels": "alpha")", false, {0.5F, 0.25F, 0, 0.875F}},
      // A/4 + B/2 + 3/8 f(A/a, B/b), with A/a = (1, 1/2, 0) and B/b = (1/3, 1, 2/3).
      {R"("operation": "multiply", "alpha_masking": true)", false, {0.375F, 0.625F, 0.25F, 0.875F}},
      {R"("operation": "plus", "alpha_masking": true)", false, {0.75F, 1, 0.5F, 0.875F}},
      {R"("operation": "over", "alpha_masking": true)", false, over},
  };
  for (const auto& each : cases)
    probe::expect_near(rendered(merge(each.knobs, each.masked)), each.expected, 1e-6, each.knobs);
}

TEST(ChannelMerge, HasFourteenOperations) {
  const struct {
    const char* operation;
    float expected;   // of 0.5 and 0.75
    float with_zero;  // of 0.5 and 0
  } cases[] = {
      {"union", 0.875F, 0.5F}, {"absminus", 0.25F, 0.5F}, {"b if not a", 0.5F, 0.5F}, {"divide", 2.0F / 3, 0},
      {"from", 0.25F, -0.5F},  {"in", 0.375F, 0},         {"max", 0.75F, 0.5F},       {"min", 0.5F, 0},
      {"minus", -0.25F, 0.5F}, {"multiply", 0.375F, 0},   {"out", 0.125F, 0.5F},      {"plus", 1.25F, 0.5F},
      {"stencil", 0.375F, 0},  {"xor", 0.5F, 0.5F},
  };
  for (const auto& each : cases) {
    const std::string operation = std::string(R"("operation": ")") + each.operation + "\"";
    const auto node = [&](const std::string& more) {
      return probe::node("channel_merge", R"("a": "A", "b": "B")", operation + more);
    };
    probe::expect_near(rendered(node("")), {B[0], B[1], B[2], each.expected}, 1e-6, each.operation);
    probe::expect_near(rendered(node(R"(, "b_channel": "none", "output": "rgba.green")")),
                       {B[0], each.with_zero, B[2], B[3]}, 1e-6, each.operation);
    probe::expect_near(rendered(node(R"(, "mix": 0.5)")), {B[0], B[1], B[2], (each.expected + 0.75F) / 2},
                       1e-6, each.operation);
  }
  const std::string zero = R"("operation": "b if not a", "a_channel": "rgba.blue")";
  EXPECT_EQ(rendered(probe::node("channel_merge", R"("a": "A", "b": "B")", zero)), B);
}

TEST(Channels, GoWhereTheyAreSent) {
  const auto shuffle = [](const std::string& inputs, const std::string& routing,
                          const char* group = "first") {
    return probe::node("shuffle", inputs, R"("routing": ")" + routing + R"(", "group": ")" + group + "\"");
  };
  const std::string one = R"("first": "A")";
  const std::string both = R"("first": "A", "second": "B")";
  const struct {
    const char* what;
    std::string node;
    Rgba expected;
  } cases[] = {
      {"alpha by default", probe::node("copy", R"("a": "A", "b": "B")", ""), {0.25F, 0.75F, 0.5F, 0.5F}},
      {"crossed",
       probe::node("copy", R"("a": "A", "b": "B")",
                   R"("red": "rgba.alpha", "blue": "rgba.green", "alpha": "none")"),
       {0.5F, 0.75F, 0.25F, 0.75F}},
      {"nothing", probe::node("copy", R"("a": "A", "b": "B")", R"("alpha": "none")"), B},
      {"routed", shuffle(one, "2 a 0 3 r 0 0 white 0 0 a 0 3"), {0.5F, 0.25F, 0, 1}},
      {"no routes", shuffle(one, ""), A},
      {"black", shuffle(one, "1 black 0 0 g 0 1"), {0.5F, 0, 0, 0.5F}},
      {"from the second", shuffle(both, "1 b 1 2 r 0 0"), {0.5F, 0.25F, 0, 0.5F}},
      {"green of the second", shuffle(both, "1 g 1 1 b 0 2"), {0.5F, 0.25F, 0.75F, 0.5F}},
      {"the second is not there", shuffle(one, "1 g 1 1 g 0 1"), {0.5F, 0, 0, 0.5F}},
      {"in words",
       probe::node("shuffle", both, R"("routing": {"r": "alpha", "blue": "second.green", "a": "white"})"),
       {0.5F, 0.25F, 0.75F, 1}},
      {"past a disabled node",
       R"({"name": "m", "type": "clamp", "inputs": "A", "knobs": {"high": 0.1}, "disabled": true, "comment": "-"},)"
       R"({"name": "n", "type": "shuffle", "inputs": "m"})",
       A},
      {"the other group", shuffle(both, "2 g 1 1 r 1 0 white 0 0 r 0 0", "second"), {0.75F, 0.25F, 0, 0.5F}},
  };
  for (const auto& each : cases) probe::expect_near(rendered(each.node), each.expected, 1e-6, each.what);
}

TEST(Pickers, BlendAndChoose) {
  const auto node = [](const char* type, const char* which) {
    return std::string(R"({"name": "n", "type": ")") + type +
           R"(", "inputs": ["A", "B", "M"], "knobs": {"which": )" + which + "}}";
  };
  constexpr Rgba M = {0.5F, 0, 0, 0.25F};
  const struct {
    const char* type;
    const char* which;
    Rgba expected;
  } cases[] = {
      {"dissolve", "0", A},
      {"dissolve", "0.25", {0.4375F, 0.375F, 0.125F, 0.5625F}},
      {"dissolve", "1.5", {0.375F, 0.375F, 0.25F, 0.5F}},
      {"dissolve", "-3", A},
      {"dissolve", "7", M},
      {"switch", "0.9", A},
      {"switch", "1", B},
      {"switch", "7", M},
  };
  for (const auto& each : cases) {
    probe::expect_near(rendered(node(each.type, each.which)), each.expected, 1e-6,
                       std::string(each.type) + " " + each.which);
  }
}

// A pixel of A inside B's window, which lies inside the format: results have the window of both, and
// each image is transparent black outside its own.
TEST(Merge, LaysWindowsOverEachOther) {
  scene::Plate plate;
  plate.full_width = plate.full_height = 6;
  plate.width = plate.height = 1;
  plate.x = 4;
  plate.y = 0;
  plate.pixels = {1, 1, 1, 1};
  scene::write_plate(scene::folder() / "a.exr", plate);
  plate.width = plate.height = 3;
  plate.x = 2;
  plate.y = 1;
  plate.pixels.assign(36, 0.5F);
  scene::write_plate(scene::folder() / "b.exr", plate);
  const std::string plates = R"({"name": "a", "type": "read", "knobs": {"file": "a.exr"}},
                                {"name": "b", "type": "read", "knobs": {"file": "b.exr"}}, )";
  for (const char* type : {"merge", "copy", "channel_merge"}) {
    scene::Scene shot(plates + probe::node(type, R"("a": "a", "b": "b")", ""), 6, 6);
    const auto image = shot.image("n");
    EXPECT_EQ(image.extent.window, (host::Box{2, 2, 5, 6})) << type;
    EXPECT_EQ(scene::pixel(image, 4, 5)[3], 1) << type;
    EXPECT_EQ(scene::pixel(image, 2, 5)[3], 0) << type;
    EXPECT_EQ(scene::pixel(image, 2, 2)[0], 0.5F) << type;
  }
  // White alpha has pixels all over the format.
  scene::Scene shot(plates + probe::node("shuffle", R"("first": "b")", R"("routing": "1 white 0 0 a 0 3")"),
                    6, 6);
  const auto image = shot.image("n");
  EXPECT_EQ(image.extent.window, (host::Box{0, 0, 6, 6}));
  EXPECT_EQ(scene::pixel(image, 0, 0), (Rgba{0, 0, 0, 1}));
}

// When the composition is read: no frame is tried.
TEST(Texts, ThatMeanNothingAreRefused) {
  const auto channel_merge = [](const char* knobs) {
    return probe::node("channel_merge", R"("a": "A", "b": "B")", knobs);
  };
  const auto shuffle = [](const std::string& routing) {
    return probe::node("shuffle", R"("first": "A", "second": "B")", R"("routing": ")" + routing + "\"");
  };
  const struct {
    std::string node;
    const char* message;  // "" for a text that is good
  } cases[] = {
      {merge(R"("mask_channel": "depth")", true),
       R"(knob "mask_channel": expected a channel (red, green, blue, )"},
      {merge(R"("mask_channel": "rgba.alhpa")"), R"(knob "mask_channel": expected a channel)"},
      {merge(R"("mask_channel": " rgba.Red ")"), ""},
      {probe::node("copy", R"("a": "A", "b": "B")", R"("red": "depth.Z")"),
       R"(knob "red": expected a channel)"},
      {probe::node("copy", R"("a": "A", "b": "B")", R"("red": "alpha", "blue": "")"), ""},
      {channel_merge(R"("a_channel": "depth.Z")"), R"(knob "a_channel": expected a channel)"},
      {channel_merge(R"("output": "rgba.alhpa")"),
       R"(node "n": knob "output": expected a channel (red, green, blue, alpha, none), found "rgba.alhpa")"},
      {channel_merge(R"("a_channel": "{rgba.Blue}", "b_channel": "-rgba.red", "output": "g")"), ""},
      {shuffle("1 rde 0 0 r 0 0"), R"(knob "routing": route 1: expected a source channel (red, )"},
      {shuffle("2 r 0 0 g 0 1 r 0 0 gren 0 1"), R"(route 2: expected an output channel (red, )"},
      {shuffle("1 r 2 0 g 0 1"), R"(route 1: expected input 0 or 1 of a source, found "2")"},
      {shuffle("1 r 0 0 g 2 1"), R"(route 1: expected output group 0 or 1, found "2")"},
      {shuffle("2 r 0 0 g 0 1"),
       R"(expected how many routes, then six words for each, found "2" and 6 words)"},
      {shuffle("r to g"), R"(expected how many routes)"},
      {shuffle("1 rgba.x 1 0 w 1 -1"), ""},
      {shuffle("r=alhpa"),
       R"(expected a source channel (red, green, blue, alpha, black, white), found "alhpa")"},
      {probe::node("shuffle", R"("first": "A")", R"("routing": {"red": "second.g", "a": "black"})"), ""},
      {probe::node("shuffle", R"("first": "A")", R"("routing": {"red": 1})"), R"(knob "routing": expected)"},
  };
  for (const auto& each : cases) {
    std::string found;
    try {
      scene::Scene shot(probe::constant("A", A) + probe::constant("B", B) + probe::constant("M", B) +
                        each.node);
      shot.image("n");
    } catch (const host::shot::CompositionError& error) {
      found = error.what();
    }
    EXPECT_NE(found.find(each.message), std::string::npos) << each.message << "\n" << found;
    EXPECT_EQ(found.empty(), *each.message == 0) << found;
  }
}

}  // namespace
