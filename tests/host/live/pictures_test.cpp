#include "host/gpu/gl_functions.h"
#include "host/gpu/gpu_thread.h"
#include "tests/host/live/page_server.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <OpenEXR/ImfRgba.h>
#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;
using live::Json;
using live::keyed;
using live::PageServer;
using live::shot_of;

// A plate of floats of every kind.
std::vector<float> write_plate(const fs::path& file, int width, int height) {
  std::mt19937 random(11);
  std::uniform_real_distribution<float> value(-2, 8);
  std::vector<float> pixels(static_cast<size_t>(4 * width * height));
  for (float& each : pixels) each = value(random);
  pixels[0] = std::numeric_limits<float>::quiet_NaN();
  pixels[5] = 70000;
  pixels[6] = std::numeric_limits<float>::infinity();
  const auto out = OIIO::ImageOutput::create("exr");
  OIIO::ImageSpec spec(width, height, 4, OIIO::TypeFloat);
  EXPECT_TRUE(out->open(file.string(), spec) && out->write_image(OIIO::TypeFloat, pixels.data()));
  out->close();
  return pixels;
}

struct Frame {
  Json header;
  std::string pixels;
};

Frame take_frame(live::Listening& frames) {
  EXPECT_EQ(frames.take(4), "QVF1");
  std::array<uint32_t, 2> sizes{};
  std::memcpy(sizes.data(), frames.take(8).data(), 8);
  Frame frame{Json::parse(frames.take(sizes[0])), ""};
  frame.pixels = frames.take(sizes[1]);
  return frame;
}

Json wish(int id, const std::string& node, int64_t frame, const std::string& pixels) {
  return {{"id", id},       {"slot", "a"}, {"version", 0},     {"node", node},
          {"frame", frame}, {"scale", 1},  {"area", "format"}, {"pixels", pixels}};
}

TEST(Pictures, SendsThePixelsOfTheFile) {
  const std::string plate = R"({"name": "plate", "type": "read", "knobs": {"file": "plate.exr"}})";
  PageServer server(shot_of(keyed));
  const std::vector<float> pixels = write_plate(server.folder / "plate.exr", 16, 9);
  const std::string text =
      shot_of(keyed + ", " + plate + R"(, {"name": "out", "type": "write", "inputs": "plate"})");
  ASSERT_EQ(server.send("PUT", "/composition", {{"base", 1}, {"text", text}}).status, 200);
  const auto frames = server.listen("/frames?client=p"), events = server.listen("/events?client=p");
  events->event("render");
  const Json wishes = {wish(7, "plate", 2, "rgba16f"), wish(8, "", 2, "rgba8"),
                       wish(9, "soft", 99, "r11g11b10f")};
  ASSERT_EQ(server.send("POST", "/view", {{"client", "p"}, {"wishes", wishes}, {"ahead", nullptr}}).status,
            204);

  Frame frame = take_frame(*frames);
  EXPECT_EQ(frame.header["id"], 7);
  EXPECT_EQ(frame.header["version"], 2);
  EXPECT_EQ(frame.header["problem"], nullptr) << frame.header;
  EXPECT_EQ(frame.header["area"], Json({0, 0, 16, 9}));
  EXPECT_EQ(frame.header["window"], Json({0, 0, 16, 9}));
  ASSERT_EQ(frame.pixels.size(), pixels.size() * 2);
  for (size_t i = 0; i < pixels.size(); ++i) {
    uint16_t bits = 0;
    std::memcpy(&bits, &frame.pixels[2 * i], 2);
    half expected = std::isfinite(pixels[i]) ? std::min(pixels[i], 65504.0F) : pixels[i];
    ASSERT_TRUE(expected.bits() == bits || (expected.isNan() && (bits & 0x7fffU) > 0x7c00U)) << i;
  }
  const Json nodes = events->event("nodes");
  EXPECT_EQ(nodes["version"], 2);
  frame = take_frame(*frames);
  EXPECT_EQ(frame.header["node"], "out");
  EXPECT_EQ(frame.pixels.size(), pixels.size());
  EXPECT_EQ(take_frame(*frames).header["width"], 16);

  // An edit brings along what is to be seen of it; where it is refused, nothing has happened.
  const auto edit = [&](const Json& view) {
    std::string other = text;
    other.replace(other.find("plate.exr"), 5, "other");
    return server.send("PUT", "/composition", {{"base", 2}, {"text", other}, {"view", view}});
  };
  Json next = wish(10, "plate", 2, "rgba16f");
  next["version"] = 3;
  const Json view = {{"client", "p"}, {"wishes", Json::array({next})}, {"ahead", nullptr}};
  EXPECT_EQ(edit({{"client", "p"}}).status, 400);
  EXPECT_EQ(server.send("GET", "/composition").body["version"], 2);
  EXPECT_EQ(edit(view).status, 200);
  frame = take_frame(*frames);
  EXPECT_EQ(frame.header["id"], 10);
  EXPECT_EQ(frame.header["version"], 3);
  EXPECT_NE(frame.header["problem"]["message"].get<std::string>().find("other.exr"), std::string::npos)
      << frame.header;

  // The floats themselves; row 0 is the top one.
  const std::string of = "?version=2&node=plate&frame=1";
  const auto pixel = [&](int x, int y) {
    return server.send("GET", "/pixel" + of + "&x=" + std::to_string(x) + "&y=" + std::to_string(y))
        .body["value"];
  };
  EXPECT_EQ(pixel(0, 8)[0], "nan");
  EXPECT_EQ(pixel(1, 8)[2], "inf");
  EXPECT_EQ(pixel(1, 8)[1], 70000);
  EXPECT_EQ(pixel(3, 2)[1].get<float>(), pixels[4 * (6 * 16 + 3) + 1]);
  EXPECT_EQ(pixel(-5, 2), Json({0, 0, 0, 0}));
  const Json region = server.send("GET", "/region" + of + "&x0=-9&y0=8&x1=2&y1=30").body;
  EXPECT_EQ(region["nan"], 1);
  EXPECT_EQ(region["infinite"], 1);
  EXPECT_EQ(region["least"][1].get<float>(), std::min(pixels[1], pixels[5]));
  EXPECT_EQ(region["largest"][2], "inf");
  EXPECT_EQ(region["mean"][2].get<float>(), pixels[2]) << "of what is finite";
  EXPECT_EQ(region["largest"][0].get<float>(), pixels[4]) << "NaN is neither";
}

TEST(Pictures, EvaluatesCurvesAndTellsTheCatalogue) {
  PageServer server(shot_of(keyed));
  const std::string curve = "/curve?node=ground&knob=color&first=0&last=4&step=0.5&component=";
  EXPECT_EQ(server.send("GET", curve + "0").body["values"], Json({0, 0, 0, 0.25, 0.5, 0.75, 1, 1, 1}));
  EXPECT_EQ(server.send("GET", curve + "2").body["values"], Json(std::vector<double>(9, 0.25)));
  EXPECT_EQ(server.send("GET", curve + "9").status, 404);
  const std::string far_away = "/curve?node=ground&knob=color&first=1e300&last=1e300&step=1&component=0";
  EXPECT_EQ(server.send("GET", far_away).body["values"], Json({1})) << "a step that leads nowhere";
  EXPECT_EQ(server.send("GET", "/curve?node=ground&knob=color&component=0&first=0&last=9e9&step=1").status,
            400);
  for (const Json& type : server.send("GET", "/catalogue").body) {
    if (type["name"] == "constant") {
      EXPECT_EQ(type["knobs"][0]["maximum"], nullptr) << type;
    }
    if (type["name"] != "blur") continue;
    EXPECT_EQ(type["inputs"][0]["required"], true) << type;
    EXPECT_EQ(type["knobs"][0]["minimum"], 0) << type;
  }
}

// A display with a table: its text must be one of GLSL ES 3.00, which this driver compiles too.
TEST(Pictures, GivesDisplaysAsTextForThePage) {
  PageServer server(shot_of(keyed));
  EXPECT_EQ(server.send("GET", "/display").body["displays"], Json::array());
  std::string cube = "LUT_3D_SIZE 3\n";
  for (const double blue : {0.0, 0.3, 0.6}) {
    for (const double green : {0.0, 0.5, 1.0}) {
      for (const double red : {0.0, 0.4, 0.8})
        cube += std::to_string(red) + " " + std::to_string(green) + " " + std::to_string(blue) + "\n";
    }
  }
  support::write_bytes(server.folder / "look.cube", cube);
  support::write_bytes(server.folder / "shape.spi1d",
                       "Version 1\nFrom 0 1\nLength 3\nComponents 1\n{\n0\n0.2\n1\n}\n");
  support::write_bytes(server.folder / "config.ocio", R"(ocio_profile_version: 2
roles: {default: linear, scene_linear: linear}
displays:
  screen:
    - !<View> {name: film, colorspace: film}
    - !<View> {name: plain, colorspace: linear}
colorspaces:
  - !<ColorSpace> {name: linear}
  - !<ColorSpace>
    name: film
    from_scene_reference: !<GroupTransform>
      children:
        - !<FileTransform> {src: shape.spi1d, interpolation: linear}
        - !<FileTransform> {src: look.cube, interpolation: linear}
)");
  const std::string shown = keyed + R"(, {"name": "seen", "type": "ocio_display", "inputs": "soft",
    "knobs": {"config": "config.ocio"}})";
  ASSERT_EQ(server.send("PUT", "/composition", {{"base", 1}, {"text", shot_of(shown)}}).status, 200);
  const Json display = server.send("GET", "/display").body;
  EXPECT_EQ(display["displays"], Json({{{"name", "screen"}, {"views", {"film", "plain"}}}}));
  EXPECT_EQ(server.send("GET", "/display/shader?display=screen&view=flim").status, 404);
  const auto thread = host::gpu::GpuThread::share({host::gpu::DeviceChoice::Kind::software, 0});
  for (const auto& [view, tables] : {std::pair("film", 2U), {"plain", 0U}}) {
    const Json shader = server.send("GET", std::string("/display/shader?display=screen&view=") + view).body;
    ASSERT_EQ(shader["tables"].size(), tables) << shader;
    for (const Json& table : shader["tables"]) {
      const auto floats =
          table["width"].get<size_t>() * table["height"].get<size_t>() * table["depth"].get<size_t>() * 4;
      EXPECT_EQ(table["rgba"].get<std::string>().size(), (floats * 4 + 2) / 3 * 4);
    }
    const std::string text = "#version 300 es\nprecision highp float;\n" +
                             shader["shader"].get<std::string>() +
                             "\nin vec4 c;\nout vec4 o;\nvoid main() { o = display_convert(c); }\n";
    thread->run([&] {
      thread->context();
      namespace gl = host::gpu;
      const GLuint made = gl::gl.CreateShader(GL_FRAGMENT_SHADER);
      const char* const begin = text.c_str();
      gl::gl.ShaderSource(made, 1, &begin, nullptr);
      gl::gl.CompileShader(made);
      GLint compiled = 0;
      gl::gl.GetShaderiv(made, GL_COMPILE_STATUS, &compiled);
      std::string log(4000, '\0');
      gl::gl.GetShaderInfoLog(made, 4000, nullptr, log.data());
      EXPECT_EQ(compiled, GL_TRUE) << log << text;
      gl::gl.DeleteShader(made);
    });
  }
}

}  // namespace
