#include "host/nodes/catalogue.h"
#include "tests/host/render/scene.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <fstream>
#include <map>
#include <tuple>

#include <gtest/gtest.h>

namespace {

using host::node::NodeType;
using scene::HostImage;
using scene::Rgba;

constexpr int width = 16;
constexpr int height = 12;
constexpr int64_t frame = 5;

// Knobs under which a node of a type changes its image, on either side of the middle, where it needs any.
const std::map<std::string, std::string> changing = {
    {"copy", R"("red": "green")"},
    {"channel_merge", R"("output": "blue")"},
    {"shuffle", R"("routing": {"r": "second.g", "a": "second.b"})"},
    {"edge_fill", R"("trust": 0.5)"},
    {"blur", R"("size": 3)"},
    {"glow", R"("size": 3)"},
    {"sharpen", R"("size": 3)"},
    {"dilate", R"("amount": 1)"},
    {"filter_erode", R"("amount": 1)"},
    {"erode", R"("amount": 1)"},
    {"edge_blur", R"("size": 3)"},
    {"disc_blur", R"("radius": 2)"},
    {"defocus", R"("size": 3, "focus": 0.25)"},
    {"transform", R"("translate": [1.5, 0.5])"},
    {"corner_pin", R"("to": [1.5, 0.5])"},
    {"frame_blend", R"("count": 3)"},
    {"time_blur", R"("width": 3, "offset": 1)"},
    {"shutter", R"("shutter": 3, "shutter_position": "start")"},
    {"grade", R"("offset": 0.25)"},
    {"saturation", R"("saturation": 0)"},
    {"color_matrix", R"("red": [0, 1, 0])"},
    {"clamp", R"("high": 0.25)"},
    {"ocio_file", R"("file": "warm.cc")"},
    {"ocio_cdl", R"("slope": [2, 1, 1])"},
};

// Noise in a part of the picture. A mask is half the picture: its alpha is 1 where it has pixels.
void write_plate(const std::string& name, unsigned seed, int x, int columns) {
  std::mt19937 random(seed);
  scene::Plate plate = scene::noise(random, columns, name == "mask.exr" ? height : height - 2);
  std::tie(plate.x, plate.y) = std::tuple(x, (height - plate.height) / 2);
  std::tie(plate.full_width, plate.full_height) = std::tuple(width, height);
  for (size_t i = 0; i < plate.pixels.size(); i += 4) {
    if (name == "holes.exr" && i % 5 == 0) plate.pixels[i + 3] = NAN;
    if (name != "mask.exr") continue;
    plate.pixels[i] = 1.5F * plate.pixels[i] - 0.25F;
    plate.pixels[i + 3] = 1;
  }
  scene::write_plate(name, plate);
}

// How a node is told to be seen, and how much of it then is, 0 to 1, of a channel at a pixel inside the mask
// or not, whose red there is this.
const std::string all = R"("channels": "rgba")";
struct Term {
  const char* name;
  bool masked;
  std::string knobs;
  double (*amount)(bool inside, double red, size_t c);
};
const Term terms[] = {
    {"half", true, all, [](bool inside, double, size_t) -> double { return inside; }},
    {"other half", true, all + R"(, "invert_mask": true)",
     [](bool inside, double, size_t) -> double { return !inside; }},
    {"part", true, all + R"(, "mask_channel": "red", "mix": 0.75)",
     [](bool, double red, size_t) { return 0.75 * std::clamp(red, 0.0, 1.0); }},
    {"mixed", false, all + R"(, "mix": 0.25)", [](bool, double, size_t) { return 0.25; }},
    {"colour", false, R"("channels": "rgb")", [](bool, double, size_t c) -> double { return c < 3; }},
    {"green", true, R"("channels": "green")",
     [](bool inside, double, size_t c) -> double { return inside && c == 1; }},
};

std::string node_of(const NodeType& type, const std::string& name, bool masked, const std::string& knobs) {
  std::string inputs;
  for (size_t i = 0; i < type.inputs.size(); ++i) {
    const std::string& input = type.inputs[i].name;
    if (input == "mask" && !masked) continue;
    const std::string from = static_cast<int>(i) == type.changes ? "in" : input == "mask" ? "mask" : "other";
    inputs += (inputs.empty() ? "\"" : ", \"") + input + "\": \"" + from + "\"";
  }
  const std::string own = changing.contains(type.name) ? changing.at(type.name) : "";
  return scene::node(name, "{" + inputs + "}", type.name,
                     own + (own.empty() || knobs.empty() ? "" : ", ") + knobs);
}

// One node under several terms, with what it reads.
scene::Scene scene_of(const NodeType& type) {
  const std::string plate = type.name == "find_nan" ? "holes.exr" : "plate.exr";
  std::string nodes = scene::read_plate(plate, "plate") + scene::read_plate("other.exr", "other") +
                      scene::read_plate("mask.exr", "mask") +
                      scene::node("in", "plate", "grade", R"("multiply": {"keys": [[1, 0.5], [9, 1.5]]})");
  nodes += node_of(type, "plain", false, all);
  for (const auto& term : terms) nodes += node_of(type, term.name, term.masked, term.knobs);
  nodes += node_of(type, "none", true, R"("mix": 0)");
  return scene::Scene(nodes, width, height);
}

bool same_bits(float a, float b) {
  return std::bit_cast<uint32_t>(a) == std::bit_cast<uint32_t>(b);
}

// Bit for bit where a term lets all or nothing be seen, else against a mixture made here.
void check(const Term& term, const HostImage& found, const HostImage& in, const HostImage& plain,
           const HostImage& mask) {
  SCOPED_TRACE(term.name);
  for (int64_t y = -4; y < height + 4; ++y) {
    for (int64_t x = -4; x < width + 4; ++x) {
      const Rgba image = scene::pixel(in, x, y), made = scene::pixel(plain, x, y),
                 pixel = scene::pixel(found, x, y);
      const bool inside = x >= 0 && x < width / 2 && y >= 0 && y < height;
      for (size_t c = 0; c < 4; ++c) {
        const double part = term.amount(inside, static_cast<double>(scene::pixel(mask, x, y)[0]), c);
        const double mixed = image[c] * (1 - part) + made[c] * part;
        if (part == 0 || part == 1) {
          ASSERT_TRUE(same_bits(pixel[c], part == 0 ? image[c] : made[c]))
              << x << " " << y << " channel " << c << ": " << pixel[c] << " not " << mixed;
        } else if (!std::isnan(mixed) || !std::isnan(pixel[c])) {
          ASSERT_NEAR(pixel[c], mixed, 1e-6 * std::max(1.0, std::abs(mixed))) << x << " " << y << " " << c;
        }
      }
    }
  }
}

bool differs(const HostImage& a, const HostImage& b, int64_t from, int64_t to) {
  for (int64_t y = 0; y < height; ++y)
    for (int64_t x = from; x < to; ++x)
      if (scene::pixel(a, x, y) != scene::pixel(b, x, y)) return true;
  return false;
}

TEST(Around, HoldsEveryNodeToItsShare) {
  write_plate("plate.exr", 1, 2, 12);
  write_plate("holes.exr", 1, 2, 12);
  write_plate("other.exr", 2, 0, 16);
  write_plate("mask.exr", 9, 0, width / 2);
  std::ofstream(scene::folder() / "warm.cc") << R"(<ColorCorrection id="warm"><SOPNode>
      <Slope>2 1 0.5</Slope><Offset>0 0 0</Offset><Power>1 1 1</Power></SOPNode></ColorCorrection>)";
  for (const NodeType& type : host::nodes::catalogue()) {
    if (type.changes < 0 || type.inputs.empty()) continue;
    SCOPED_TRACE(type.name);
    scene::Scene shot = scene_of(type);
    const HostImage in = shot.image("in", frame);
    const host::draw::Stats before = shot.renderer().stats();
    const HostImage none = shot.image("none", frame);
    EXPECT_TRUE(none.extent == in.extent && std::ranges::equal(none.rgba, in.rgba, same_bits));
    // It asks for what it changes alone, and hands that on.
    EXPECT_EQ(shot.renderer().stats().computed - before.computed, 1);
    EXPECT_EQ(shot.renderer().stats().draws, before.draws);
    const HostImage plain = shot.image("plain", frame), mask = shot.image("mask", frame);
    ASSERT_TRUE(differs(in, plain, 0, width / 2) && differs(in, plain, width / 2, width));
    for (const auto& term : terms) check(term, shot.image(term.name, frame), in, plain, mask);
  }
}

}  // namespace
