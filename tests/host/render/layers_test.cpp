#include "tests/host/render/scene.h"
#include "tests/support/files.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <OpenImageIO/imagebuf.h>
#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>
#include <half.h>

namespace {

namespace fs = std::filesystem;

constexpr int width = 24, height = 20;

// A channel of a file: that of a plate, and how it is stored.
struct Stored {
  const char* plate;
  int channel;
  bool real;
};

struct PartOf {
  const char* name;
  std::array<int, 4> window;  // x, y, width, height, y down
  std::map<std::string, Stored> channels;
};

struct Case {
  const char* file;
  const char* inputs;
  const char* knobs;
  std::vector<PartOf> parts;
};

std::string told(const std::string& program, const fs::path& path) {
  const fs::path out = scene::folder() / "told";
  const int status = std::system((program + " " + path.string() + " >" + out.string() + " 2>&1").c_str());
  return (status == 0 ? "" : "failed: ") + support::bytes_of(out);
}

// Values that no half holds, in windows of their own: colour, a depth of one channel, motion without an
// alpha.
void write_plates() {
  std::mt19937 random(7);
  const auto write = [&random](const char* file, int x, int y, int w, int h,
                               std::vector<std::string> channels) {
    scene::Plate plate = scene::noise(random, w, h, std::move(channels));
    plate.x = x;
    plate.y = y;
    plate.full_width = width;
    plate.full_height = height;
    scene::write_plate(scene::folder() / file, plate);
  };
  write("comp.exr", 0, 0, width, height, {"R", "G", "B", "A"});
  write("small.exr", 5, 3, 7, 9, {"R", "G", "B", "A"});
  write("z.exr", 2, 6, 9, 4, {"Z"});
  write("motion.exr", -3, -2, 40, 30, {"motion.u", "motion.v"});
}

const std::string plates = R"({"name": "comp", "type": "read", "knobs": {"file": "comp.exr"}},
  {"name": "small", "type": "read", "knobs": {"file": "small.exr"}},
  {"name": "z", "type": "read", "knobs": {"file": "z.exr"}},
  {"name": "motion", "type": "read", "knobs": {"file": "motion.exr"}})";

std::string write_node(const Case& each) {
  return scene::node(std::string("out ") + each.file, each.inputs, "write",
                     std::string("\"file\": \"") + each.file + "\"" + each.knobs);
}

const std::map<std::string, Stored> colour = {{"R", {"comp.exr", 0, false}},
                                              {"G", {"comp.exr", 1, false}},
                                              {"B", {"comp.exr", 2, false}},
                                              {"A", {"comp.exr", 3, false}}};

std::map<std::string, Stored> with(std::map<std::string, Stored> more) {
  more.insert(colour.begin(), colour.end());
  return more;
}

constexpr std::array<int, 4> whole = {0, 0, width, height};

const std::vector<Case> cases = {
    {"one.exr", "comp", "", {{"", whole, colour}}},
    {"layers.exr",
     R"({"rgba": "comp", "depth": "z", "key": "small"})",
     R"(, "channels": {"depth": ["Z"], "key": "A"}, "depth": {"depth": "float"})",
     {{"", whole, with({{"depth.Z", {"z.exr", 0, true}}, {"key.A", {"small.exr", 3, false}}})}}},
    {"plain.exr",
     R"({"image": "comp", "mv": "motion", "fg": "small"})",
     R"(, "depth": "float", "channels": {"image": "A"})",
     {{"",
       whole,
       {{"A", {"comp.exr", 3, true}},
        {"mv.R", {"motion.exr", 0, true}},
        {"mv.G", {"motion.exr", 1, true}},
        {"mv.B", {"", 0, true}},
        {"fg.R", {"small.exr", 0, true}},
        {"fg.G", {"small.exr", 1, true}},
        {"fg.B", {"small.exr", 2, true}},
        {"fg.A", {"small.exr", 3, true}}}}}},
    // Names as they stand, colours picked by theirs, and the same image in two layers; five are more than may
    // be on their way by themselves.
    {"names.exr",
     R"({"rgba": "comp", "a": "z", "b": "z", "c": "small", "d": "motion"})",
     R"(, "channels": {"a": [".Z"], "b": "left.Z", "c": ["Blue", "x"], "d": ["u", "v"]}, "compression": "piz")",
     {{"", whole,
       with({{"Z", {"z.exr", 0, false}},
             {"left.Z", {"z.exr", 0, false}},
             {"c.Blue", {"small.exr", 2, false}},
             {"c.x", {"small.exr", 1, false}},
             {"d.u", {"motion.exr", 0, false}},
             {"d.v", {"motion.exr", 1, false}}})}}},
    {"hull.exr",
     R"({"fg": "small", "depth": "z"})",
     R"(, "channels": {"depth": "Z", "fg": ["R"]})",
     {{"", {2, 3, 10, 9}, {{"depth.Z", {"z.exr", 0, false}}, {"fg.R", {"small.exr", 0, false}}}}}},
    {"parts.exr",
     R"({"rgba": "comp", "depth": "z", "mv": "motion"})",
     R"(, "parts": true, "channels": {"depth": "Z", "mv": ["u", "v"]}, "depth": {"depth": "float"})",
     {{"rgba", whole, colour},
      {"depth", {2, 6, 9, 4}, {{"Z", {"z.exr", 0, true}}}},
      {"mv", whole, {{"u", {"motion.exr", 0, false}}, {"v", {"motion.exr", 1, false}}}}}},
    {"overscan.exr",
     R"({"rgba": "comp", "mv": "motion"})",
     R"(, "parts": true, "overscan": true, "channels": {"mv": ["u", "v"]}, "compression": "none")",
     {{"rgba", whole, colour},
      {"mv", {-3, -2, 40, 30}, {{"u", {"motion.exr", 0, false}}, {"v", {"motion.exr", 1, false}}}}}},
};

void expect_channel(OIIO::ImageInput& input, int part, int channel, const Stored& stored,
                    const std::string& what) {
  const OIIO::ImageSpec spec = input.spec(part, 0);
  const OIIO::ImageBuf plate((scene::folder() / stored.plate).string());
  EXPECT_EQ(spec.channelformat(channel), stored.real ? OIIO::TypeFloat : OIIO::TypeHalf) << what;
  std::vector<float> values(static_cast<size_t>(spec.width * spec.height));
  ASSERT_TRUE(input.read_image(part, 0, channel, channel + 1, OIIO::TypeFloat, values.data())) << what;
  for (int y = 0; y < spec.height; ++y) {
    for (int x = 0; x < spec.width; ++x) {
      const bool some = *stored.plate != '\0';
      const float value = some ? plate.getchannel(spec.x + x, spec.y + y, 0, stored.channel) : 0.0F;
      ASSERT_EQ(values[static_cast<size_t>(y * spec.width + x)],
                stored.real ? value : static_cast<float>(half(value)))
          << what << " at " << x << ", " << y;
    }
  }
}

// As another library and OpenEXR's own tools see them.
TEST(Layers, AreWrittenAsTheyAreNamed) {
  write_plates();
  std::string nodes = plates;
  for (const Case& each : cases) nodes += write_node(each);
  host::render::RenderOptions options;
  options.frames = {1};
  options.threads = 1;
  scene::Scene shot(nodes, width, height, options);
  scene::Recorder recorder;
  ASSERT_EQ(shot.renderer().run(recorder), host::render::Outcome::done) << recorder.frames.back().error;
  for (const Case& each : cases) {
    const auto input = OIIO::ImageInput::open((scene::folder() / each.file).string());
    ASSERT_TRUE(input) << each.file;
    const std::string header = told("exrheader", scene::folder() / each.file);
    EXPECT_EQ(told("exrinfo -s", scene::folder() / each.file).find("failed"), std::string::npos) << each.file;
    int part = 0;
    for (const PartOf& expected : each.parts) {
      const OIIO::ImageSpec spec = input->spec(part, 0);
      EXPECT_EQ(spec.get_string_attribute("name"), expected.name) << each.file;
      const std::array<int, 4> window = {spec.x, spec.y, spec.width, spec.height};
      EXPECT_EQ(window, expected.window) << each.file;
      EXPECT_EQ(spec.full_width, width) << each.file;
      ASSERT_EQ(static_cast<size_t>(spec.nchannels), expected.channels.size()) << each.file;
      for (int i = 0; i < spec.nchannels; ++i) {
        const std::string& name = spec.channelnames[static_cast<size_t>(i)];
        const auto channel = expected.channels.find(name);
        ASSERT_NE(channel, expected.channels.end()) << each.file << ": " << name;
        expect_channel(*input, part, i, channel->second, std::string(each.file).append(": ").append(name));
        const std::string line = "    " + name + (channel->second.real ? ", 32-bit" : ", 16-bit");
        EXPECT_NE(header.find(line), std::string::npos) << header;
      }
      ++part;
    }
    EXPECT_EQ(input->spec(part, 0).nchannels, 0) << each.file;
  }
}

// A layer that cannot be read fails the frame, by its node; others stand.
TEST(Layers, FailTogetherAndLeaveNothing) {
  write_plates();
  for (const char* frame : {"1", "2"})
    fs::copy_file(scene::folder() / "comp.exr", scene::folder() / (std::string("seq.") + frame + ".exr"));
  fs::resize_file(scene::folder() / "seq.2.exr", 700);
  host::render::RenderOptions options;
  options.frames = {1, 2};
  options.keep_going = true;
  scene::Scene shot(plates + R"(, {"name": "broken", "type": "read", "knobs": {"file": "seq.#.exr"}})" +
                        scene::node("out", R"({"rgba": "comp", "b": "broken", "depth": "z"})", "write",
                                    R"("file": "together/o.#.exr")"),
                    width, height, options);
  scene::Recorder recorder;
  EXPECT_EQ(shot.renderer().run(recorder), host::render::Outcome::some_failed);
  ASSERT_EQ(recorder.frames.size(), 2U);
  EXPECT_EQ(recorder.frames[0].error, "");
  EXPECT_NE(recorder.frames[1].error.find("node \"broken\": frame 2: "), std::string::npos)
      << recorder.frames[1].error;
  const std::vector<fs::path> left(fs::directory_iterator(scene::folder() / "together"), {});
  EXPECT_EQ(left, std::vector<fs::path>{scene::folder() / "together" / "o.1.exr"});
}

// What each type of file holds, by its own words and values: 0.25, 0.5 and 0.75, with an alpha of 1.
TEST(Layers, OtherFilesHoldOneImageInTheirWays) {
  const struct {
    const char* file;
    const char* knobs;
    int channels, bits;
    double tolerance;
  } rows[] = {
      {"a.jpg", R"(, "channels": "rgb", "color": "linear")", 3, 8, 1.5 / 255},
      {"a.jpeg", R"(, "channels": "rgb", "quality": 20, "color": "linear")", 3, 8, 4.0 / 255},
      {"a.dpx", "", 4, 10, 0.55 / 1023},
      {"8.dpx", R"(, "depth": "8", "channels": "rgb")", 3, 8, 0.55 / 255},
      {"12.dpx", R"(, "depth": "12")", 4, 12, 0.55 / 4095},
      {"16.dpx", R"(, "depth": "16")", 4, 16, 0.55 / 65535},
      {"a.tif", R"(, "depth": "float")", 4, 32, 0},
      {"a.png", R"(, "depth": "16", "color": "linear")", 4, 16, 0.55 / 65535},
  };
  std::string nodes = scene::constant("c", {0.25F, 0.5F, 0.75F, 1}).substr(1);
  for (const auto& row : rows) nodes += write_node({row.file, "c", row.knobs, {}});
  host::render::RenderOptions options;
  options.frames = {1};
  for (const bool again : {false, true}) {
    options.existing = host::frame::Existing::overwrite;
    scene::Recorder recorder;
    scene::Scene shot(nodes, width, height, options);
    ASSERT_EQ(shot.renderer().run(recorder), host::render::Outcome::done) << recorder.frames.back().error;
    for (const auto& row : rows) {
      const fs::path path = scene::folder() / row.file, before = scene::folder() / "before";
      const auto kept = before / row.file;
      fs::create_directories(before);
      if (!again) fs::copy_file(path, kept);
      EXPECT_EQ(support::bytes_of(path) == support::bytes_of(kept), true) << row.file << " is another file";
      const OIIO::ImageBuf image(path.string());
      const OIIO::ImageSpec& spec = image.nativespec();
      EXPECT_EQ(spec.nchannels, row.channels) << row.file;
      EXPECT_EQ(spec.get_int_attribute("oiio:BitsPerSample", static_cast<int>(spec.format.size()) * 8),
                row.bits)
          << row.file;
      for (int i = 0; i < row.channels; ++i) {
        EXPECT_NEAR(image.getchannel(9, 11, 0, i), std::min(1.0, 0.25 * (i + 1)), row.tolerance) << row.file;
      }
    }
  }
}

TEST(Layers, ThatAFileCannotHoldAreRefusedWithWhatItHas) {
  const char* const three = R"({"rgba": "comp", "depth": "z", "key": "small"})";
  const struct {
    const char* file;
    const char* inputs;
    const char* knobs;
    const char* reason;
  } rows[] = {
      {"no.png", three, "", R"(input "depth": .png files have one image; .exr files have layers and parts)"},
      {"no.dpx", "comp", R"(, "parts": true)", R"(knob "parts": .dpx files have one image)"},
      {"no.jpg", "comp", "", R"(knob "channels": .jpg files have no "rgba"; they have "rgb")"},
      {"no.jpg", "comp", R"(, "channels": "rgb", "depth": "16")",
       R"(knob "depth": .jpg files have no "16"; they have "auto", "8")"},
      {"no.jpg", "comp", R"(, "channels": "rgb", "compression": "zip")",
       R"(knob "compression": .jpg files have no "zip"; they have none)"},
      {"no.tif", "comp", R"(, "depth": "10")",
       R"(.tif files have no "10"; they have "auto", "8", "16", "float")"},
      {"no.tif", "comp", R"(, "channels": {"rgba": "Z"})",
       R"(.tif files have no "Z"; they have "rgba", "rgb")"},
      {"no.exr", three, R"(, "channels": {"depth": [".R"]})",
       R"(knob "channels": two channels are called "R")"},
      {"no.exr", three, R"(, "channels": {"dpeth": "Z"})",
       R"(knob "channels": there is no input "dpeth" (did you mean "depth"?))"},
      {"no.exr", three, R"(, "depth": {"depth": "8"})",
       R"(knob "depth": "depth": expected "half" or "float", found "8")"},
      {"no.exr", three, R"(, "channels": {"key": 3})",
       R"("key": expected "rgba", "rgb" or one to four names)"},
      {"no.exr", R"({"rgba": "comp", "image": "z"})", "",
       R"(inputs "image" and "rgba" are one: the main image)"},
      {"no.exr", R"({"depth": "nothing"})", "", R"(input "depth": there is no node "nothing")"},
  };
  write_plates();
  for (const auto& row : rows) {
    std::string error;
    try {
      host::render::RenderOptions options;
      options.frames = {1};
      scene::Recorder recorder;
      scene::Scene(plates + write_node({row.file, row.inputs, row.knobs, {}}), width, height, options)
          .renderer()
          .run(recorder);
    } catch (const std::exception& refused) {
      error = refused.what();
    }
    EXPECT_NE(error.find(row.reason), std::string::npos) << error << "\nnot " << row.reason;
    EXPECT_FALSE(fs::exists(scene::folder() / row.file));
  }
}

}  // namespace
