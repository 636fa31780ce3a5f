#include "host/render/progress.h"
#include "tests/host/nodes/probe.h"

#include <cmath>

#include <OpenImageIO/imagebuf.h>

namespace {

using probe::Rgba;

// Reads of a layer of one channel, 4 everywhere, and of the picture beside it, 0.5 behind coverage 0.5.
constexpr const char* reads = R"(
    {"name": "depth", "type": "read", "knobs": {"file": "data.exr", "layer": "depth"}},
    {"name": "picture", "type": "read", "knobs": {"file": "data.exr"}},
    {"name": "half", "type": "range_key", "inputs": "depth",
     "knobs": {"channel": "red", "range": [0, 8, 9, 9], "output": "matte"}}, )";

void write_data() {
  scene::Plate plate;
  plate.width = plate.height = 4;
  plate.channels = {"R", "G", "B", "A", "depth.Z"};
  for (int i = 0; i < 16; ++i) plate.pixels.insert(plate.pixels.end(), {0.25F, 0.25F, 0.25F, 0.5F, 4});
  scene::write_plate(scene::folder() / "data.exr", plate);
}

std::string node(const char* name, const char* type, const char* inputs, const char* knobs) {
  return std::string(R"({"name": ")") + name + R"(", "type": ")" + type + R"(", "inputs": )" + inputs +
         R"(, "knobs": {)" + knobs + "}}";
}

// `half` is a matte of 4 / 8, in colour and alpha alike. Divided by its alpha it would be 1: with 0.25 added
// and multiplied again, 0.625 instead of 0.75.
TEST(Coverage, IsWhatColourIsDividedByAndNothingElse) {
  write_data();
  constexpr Rgba divided = {0.375F, 0.375F, 0.375F, 0.5F};
  constexpr Rgba as_it_is = {0.75F, 0.75F, 0.75F, 0.5F};
  const auto srgb = static_cast<float>(1.055 * std::pow(0.5, 1 / 2.4) - 0.055);
  const struct {
    const char* what;
    std::string before;  // makes "b"
    const char* type;    // of "n", which reads "b"
    const char* knobs;
    Rgba expected;
  } cases[] = {
      {"picture", node("b", "blur", R"("picture")", R"("size": 0)"), "grade", R"("offset": 0.25)", divided},
      {"depth", node("b", "blur", R"("depth")", R"("size": 0)"), "clamp", "", {1, 1, 1, 1}},
      {"matte", node("b", "blur", R"("half")", R"("size": 0)"), "grade", R"("offset": 0.25)", as_it_is},
      {"conversion",
       node("b", "blur", R"("half")", R"("size": 0)"),
       "ocio_colorspace",
       "",
       {srgb, srgb, srgb, 0.5F}},
      {"keyed again",
       node("b", "blur", R"("half")", R"("size": 0)"),
       "range_key",
       R"("range": [0.25, 1.25, 9, 9], "output": "matte")",
       {0.25F, 0.25F, 0.25F, 0.25F}},
      {"screen",
       node("b", "blur", R"("half")", R"("size": 0)"),
       "screen_key",
       R"("output": "foreground")",
       {0.5F, 0.5F, 0.5F, 1}},
      {"nothing open",
       node("b", "blur", R"("half")", R"("size": 0)"),
       "edge_fill",
       "",
       {0.5F, 0.5F, 0.5F, 0.5F}},
      {"waiting transform", node("b", "transform", R"("half")", R"("translate": [2, 0])"), "grade",
       R"("offset": 0.25)", as_it_is},
      {"drawn transform",
       node("b", "transform", R"("half")", R"("rotate": 180, "scale": 2, "filter": "bilinear")"), "grade",
       R"("offset": 0.25)", as_it_is},
      {"cropped", node("b", "crop", R"("half")", R"("box": [2, 0, 4, 4])"), "grade", R"("offset": 0.25)",
       as_it_is},
      {"mean of frames", node("b", "frame_blend", R"("half")", R"("count": 2)"), "grade", R"("offset": 0.25)",
       as_it_is},
      {"larger of two mattes", node("b", "merge", R"({"a": "half", "b": "half"})", R"("operation": "max")"),
       "grade", R"("offset": 0.25)", as_it_is},
      {"picture over matte", node("b", "merge", R"({"a": "picture", "b": "half"})", R"("operation": "copy")"),
       "grade", R"("offset": 0.25)", divided},
      {"matte's colour alone",
       node("b", "merge", R"({"a": "half", "b": "picture"})", R"("operation": "copy", "channels": "rgb")"),
       "grade",
       R"("offset": 0.25)",
       {0.625F, 0.625F, 0.625F, 0.5F}},
      {"red into alpha",
       node("b", "copy", R"({"a": "half", "b": "depth"})", R"("alpha": "rgba.red")"),
       "grade",
       R"("offset": 0.25)",
       {4.125F, 4.125F, 4.125F, 0.5F}},
      {"alpha of no coverage",
       node("b", "copy", R"({"a": "half", "b": "depth"})", ""),
       "grade",
       R"("offset": 0.25)",
       {4.25F, 4.25F, 4.25F, 0.5F}},
      {"cut out by a matte",
       node("b", "range_key", R"("depth")", R"("channel": "red", "range": [0, 8, 9, 9])"),
       "grade",
       R"("offset": 0.25)",
       {2.125F, 2.125F, 2.125F, 0.5F}},
  };
  for (const double scale : {1.0, 0.5}) {
    for (const auto& each : cases) {
      host::render::RenderOptions options;
      options.scale = scale;
      scene::Scene shot(reads + each.before + ", " + node("n", each.type, R"("b")", each.knobs), 4, 4,
                        options);
      const auto image = shot.image("n");
      probe::expect_near(scene::pixel(image, scale < 1 ? 1 : 2, 1), each.expected, 2e-5, each.what);
    }
  }
  // A layer of one channel is a mask by its values, here 0.25.
  const std::string quarter = node("q", "grade", R"("depth")", R"("multiply": 0.0625)") + ", ";
  const struct {
    const char* type;
    const char* inputs;
    const char* knobs;
    Rgba expected;
  } masks[] = {
      {"grade", R"({"image": "depth", "mask": "q"})", R"("multiply": 2)", {5, 5, 5, 1}},
      {"merge",
       R"({"a": "depth", "b": "q", "mask": "q"})",
       R"("operation": "plus")",
       {1.25F, 1.25F, 1.25F, 1.25F}},
      {"screen_key",
       R"({"image": "depth", "garbage": "q"})",
       R"("output": "matte")",
       {0.75F, 0.75F, 0.75F, 0.75F}},
  };
  for (const auto& each : masks) {
    scene::Scene shot(reads + quarter + node("n", each.type, each.inputs, each.knobs), 4, 4);
    probe::expect_near(scene::pixel(shot.image("n"), 1, 1), each.expected, 1e-5, each.type);
  }
  scene::Scene depth(std::string(reads) + node("n", "blur", R"("depth")", R"("size": 0)"), 4, 4);
  EXPECT_EQ(scene::pixel(depth.image("n"), 1, 1), (Rgba{4, 4, 4, 1}));
}

struct Silent : host::render::Progress {
  void begin(int64_t /*frames*/, const std::string& /*renderer*/, bool /*software*/) override {}
  void notice(const std::string& /*text*/) override {}
  void frame(const host::render::FrameReport& /*report*/) override {}
  void end(host::render::Outcome /*outcome*/, const host::render::Stats& /*all*/) override {}
};

TEST(Coverage, IsWhatPngDividesBy) {
  write_data();
  scene::Scene shot(
      std::string(reads) +
          node("m", "write", R"("half")", R"("file": "m.##.png", "color": "linear", "depth": "16")") + ", " +
          node("p", "write", R"("picture")", R"("file": "p.##.png", "color": "linear", "depth": "16")"),
      4, 4, [] {
        host::render::RenderOptions options;
        options.frames = {1};
        options.existing = host::frame::Existing::overwrite;
        return options;
      }());
  Silent silent;
  ASSERT_EQ(shot.renderer().run(silent), host::render::Outcome::done);
  OIIO::ImageSpec as_stored;
  as_stored["oiio:UnassociatedAlpha"] = 1;
  for (const char* file : {"m.01.png", "p.01.png"}) {
    OIIO::ImageBuf stored((scene::folder() / file).string(), 0, 0, nullptr, &as_stored);
    Rgba found{};
    stored.getpixel(1, 1, found.data());
    probe::expect_near(found, {0.5F, 0.5F, 0.5F, 0.5F}, 1e-4, file);
  }
}

}  // namespace
