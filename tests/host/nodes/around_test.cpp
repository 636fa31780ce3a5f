#include "host/nodes/catalogue.h"
#include "tests/host/render/scene.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using host::node::NodeType;
using host::render::HostImage;
using scene::Rgba;

constexpr int width = 16;
constexpr int height = 12;
constexpr int64_t frame = 5;

// Knobs under which a node of each type changes its image, on either side of the middle.
const std::map<std::string, std::string> changing = {
    {"copy", R"("red": "green")"},
    {"channel_merge", R"("output": "blue")"},
    {"shuffle", R"("routing": {"r": "second.g", "a": "second.b"})"},
    {"range_key", ""},
    {"screen_key", ""},
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
    {"premultiply", ""},
    {"unpremultiply", ""},
    {"invert", ""},
    {"find_nan", ""},
    {"ocio_colorspace", ""},
    {"ocio_display", ""},
    {"ocio_file", R"("file": "warm.cc")"},
    {"ocio_cdl", R"("slope": [2, 1, 1])"},
};

void write_plate(const std::string& name, int x, int columns, unsigned seed, bool holes = false) {
  std::mt19937 random(seed);
  std::uniform_real_distribution<float> value(0, 1);
  scene::Plate plate{columns, height - 2, {"R", "G", "B", "A"}, {}, x, 1, width, height};
  for (int i = 0; i < columns * (height - 2); ++i) {
    const float alpha = 0.25F + 0.75F * value(random);
    for (int c = 0; c < 3; ++c) plate.pixels.push_back(alpha * value(random));
    plate.pixels.push_back(holes && i % 5 == 0 ? NAN : alpha);
  }
  scene::write_plate(scene::folder() / name, plate);
}

// Half the picture: its alpha is 1 where it has pixels, its red a part that it has there.
void write_mask() {
  std::mt19937 random(9);
  std::uniform_real_distribution<float> value(-0.25F, 1.25F);
  scene::Plate plate{width / 2, height, {"R", "G", "B", "A"}, {}, 0, 0, width, height};
  for (int i = 0; i < width / 2 * height; ++i)
    plate.pixels.insert(plate.pixels.end(), {value(random), 0, 0, 1});
  scene::write_plate(scene::folder() / "mask.exr", plate);
}

std::string node_of(const NodeType& type, const std::string& name, bool masked, const std::string& knobs) {
  std::string inputs;
  for (size_t i = 0; i < type.inputs.size(); ++i) {
    const std::string& input = type.inputs[i].name;
    const bool base = static_cast<int>(i) == type.changes;
    if (input == "mask" && !masked) continue;
    inputs += (inputs.empty() ? "\"" : ", \"") + input + "\": \"" +
              (base              ? "in"
               : input == "mask" ? "mask"
                                 : "other") +
              "\"";
  }
  const std::string& own = changing.at(type.name);
  return scene::node(name, "{" + inputs + "}", type.name,
                     own + (own.empty() || knobs.empty() ? "" : ", ") + knobs);
}

// One node under several terms, with what it reads.
scene::Scene scene_of(const NodeType& type) {
  const std::string plate = type.name == "find_nan" ? "holes.exr" : "plate.exr";
  const std::string all = R"("channels": "rgba")";
  std::string nodes = R"({"name": "plate", "type": "read", "knobs": {"file": ")" + plate + R"("}},
      {"name": "in", "type": "grade", "inputs": "plate", "knobs": {"multiply": {"keys": [[1, 0.5], [9, 1.5]]}}},
      {"name": "other", "type": "read", "knobs": {"file": "other.exr"}},
      {"name": "mask", "type": "read", "knobs": {"file": "mask.exr"}})";
  nodes += node_of(type, "plain", false, all);
  nodes += node_of(type, "half", true, all);
  nodes += node_of(type, "other half", true, all + R"(, "invert_mask": true)");
  nodes += node_of(type, "part", true, all + R"(, "mask_channel": "red", "mix": 0.75)");
  nodes += node_of(type, "mixed", false, all + R"(, "mix": 0.25)");
  nodes += node_of(type, "colour", false, R"("channels": "rgb")");
  nodes += node_of(type, "green", true, R"("channels": "green")");
  nodes += node_of(type, "none", true, R"("mix": 0)");
  return scene::Scene(nodes, width, height);
}

bool same_bits(float a, float b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

// What is seen of the node at one pixel and channel: nothing, all, or a part.
template <class Amount>
void check(const std::string& what, const HostImage& found, const HostImage& in, const HostImage& plain,
           Amount&& amount) {
  SCOPED_TRACE(what);
  for (int64_t y = -4; y < height + 4; ++y) {
    for (int64_t x = -4; x < width + 4; ++x) {
      const Rgba image = scene::pixel(in, x, y), made = scene::pixel(plain, x, y);
      const Rgba pixel = scene::pixel(found, x, y);
      for (size_t c = 0; c < 4; ++c) {
        const double part = amount(x, y, c);
        if (part == 0 || part == 1) {
          ASSERT_TRUE(same_bits(pixel[c], part == 0 ? image[c] : made[c]))
              << x << " " << y << " channel " << c << ": " << pixel[c] << " not "
              << (part == 0 ? image[c] : made[c]);
        } else {
          const double mixed = image[c] * (1 - part) + made[c] * part;
          if (std::isnan(mixed) && std::isnan(pixel[c])) continue;
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

// Every node that changes an image is seen as far as mask, mix and channels say: bit for bit where that is
// all or nothing, else against a mixture made here of its plain result and its input.
TEST(Around, HoldsEveryNodeToItsShare) {
  write_plate("plate.exr", 2, 12, 1);
  write_plate("holes.exr", 2, 12, 1, true);
  write_plate("other.exr", 0, 16, 2);
  std::ofstream(scene::folder() / "warm.cc") << R"(<ColorCorrection id="warm"><SOPNode>
      <Slope>2 1 0.5</Slope><Offset>0 0 0</Offset><Power>1 1 1</Power></SOPNode></ColorCorrection>)";
  write_mask();
  for (const NodeType& type : host::nodes::catalogue()) {
    if (type.changes < 0 || type.inputs.empty()) continue;
    SCOPED_TRACE(type.name);
    ASSERT_TRUE(changing.count(type.name));
    scene::Scene shot = scene_of(type);
    const HostImage in = shot.image("in", frame), plain = shot.image("plain", frame);
    const HostImage mask = shot.image("mask", frame);
    const auto inside = [](int64_t x, int64_t y) { return x >= 0 && x < width / 2 && y >= 0 && y < height; };
    ASSERT_TRUE(differs(in, plain, 0, width / 2) && differs(in, plain, width / 2, width));
    check("half", shot.image("half", frame), in, plain,
          [&](int64_t x, int64_t y, size_t) { return inside(x, y) ? 1.0 : 0.0; });
    check("other half", shot.image("other half", frame), in, plain,
          [&](int64_t x, int64_t y, size_t) { return inside(x, y) ? 0.0 : 1.0; });
    check("part", shot.image("part", frame), in, plain, [&](int64_t x, int64_t y, size_t) {
      return 0.75 * std::clamp<double>(scene::pixel(mask, x, y)[0], 0, 1);
    });
    check("mixed", shot.image("mixed", frame), in, plain, [](int64_t, int64_t, size_t) { return 0.25; });
    check("colour", shot.image("colour", frame), in, plain,
          [](int64_t, int64_t, size_t c) { return c < 3 ? 1.0 : 0.0; });
    check("green", shot.image("green", frame), in, plain,
          [&](int64_t x, int64_t y, size_t c) { return c == 1 && inside(x, y) ? 1.0 : 0.0; });
    EXPECT_EQ(shot.image("none", frame).extent, in.extent);
  }
}

// With a mix of 0 a node asks for what it changes alone, and that is what comes out: the same texture.
TEST(Around, ReturnsItsInputForAMixOfNone) {
  host::programs::ShaderLibrary shaders((scene::gpu(), host::programs::ShaderLibrary::default_root()));
  host::gpu::TexturePool pool(1 << 20, 64);
  host::plates::Headers headers;
  host::Notices notices;
  host::plates::Decoder decoder(headers, 1, 0, notices);
  host::node::RenderContext context(shaders, pool, decoder);
  const host::node::Image image{{{4, 4, 1}, {0, 0, 4, 4}}, pool.acquire(4, 4), nullptr};
  const host::node::Image images[] = {image};
  for (const NodeType& type : host::nodes::catalogue()) {
    if (type.changes < 0 || type.inputs.empty()) continue;
    host::node::Node node{"n", &type, std::vector<int>(type.inputs.size(), 0), {}};
    for (const auto& spec : type.knobs) {
      node.knobs.push_back(host::node::KnobValue::default_of(spec));
      if (spec.name == "mix") node.knobs.back().components[0].constant = 0;
    }
    const host::node::Project project;
    const host::node::Call call = node.call_at(1, project);
    const auto reads = type.operation->reads(call);
    ASSERT_EQ(reads.size(), 1U) << type.name;
    EXPECT_EQ(reads[0].input, type.changes) << type.name;
    EXPECT_EQ(type.operation->render(call, images, image.extent, context).texture, image.texture)
        << type.name;
  }
}

}  // namespace
