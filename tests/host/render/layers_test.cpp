#include "tests/host/render/scene.h"
#include "tests/support/error.h"
#include "tests/support/table.h"

#include <array>
#include <cstddef>
#include <filesystem>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <OpenImageIO/imagebuf.h>
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

const std::string plates = scene::read_plate("comp.exr", "comp") + scene::read_plate("small.exr", "small") +
                           scene::read_plate("z.exr", "z") + scene::read_plate("motion.exr", "motion");

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
     R"("channels": {"depth": ["Z"], "key": "A"}, "depth": {"depth": "float"})",
     {{"", whole, with({{"depth.Z", {"z.exr", 0, true}}, {"key.A", {"small.exr", 3, false}}})}}},
    {"plain.exr",
     R"({"image": "comp", "mv": "motion", "fg": "small"})",
     R"("depth": "float", "channels": {"image": "A"})",
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
     R"("channels": {"a": [".Z"], "b": "left.Z", "c": ["Blue", "x"], "d": ["u", "v"]}, "compression": "piz")",
     {{"", whole,
       with({{"Z", {"z.exr", 0, false}},
             {"left.Z", {"z.exr", 0, false}},
             {"c.Blue", {"small.exr", 2, false}},
             {"c.x", {"small.exr", 1, false}},
             {"d.u", {"motion.exr", 0, false}},
             {"d.v", {"motion.exr", 1, false}}})}}},
    {"hull.exr",
     R"({"fg": "small", "depth": "z"})",
     R"("channels": {"depth": "Z", "fg": ["R"]})",
     {{"", {2, 3, 10, 9}, {{"depth.Z", {"z.exr", 0, false}}, {"fg.R", {"small.exr", 0, false}}}}}},
    {"parts.exr",
     R"({"rgba": "comp", "depth": "z", "mv": "motion"})",
     R"("parts": true, "channels": {"depth": "Z", "mv": ["u", "v"]}, "depth": {"depth": "float"}, "compression": "piz")",
     {{"rgba", whole, colour},
      {"depth", {2, 6, 9, 4}, {{"Z", {"z.exr", 0, true}}}},
      {"mv", whole, {{"u", {"motion.exr", 0, false}}, {"v", {"motion.exr", 1, false}}}}}},
    {"overscan.exr",
     R"({"rgba": "comp", "mv": "motion"})",
     R"("parts": true, "overscan": true, "channels": {"mv": ["u", "v"]})",
     {{"rgba", whole, colour},
      {"mv", {-3, -2, 40, 30}, {{"u", {"motion.exr", 0, false}}, {"v", {"motion.exr", 1, false}}}}}},
};

void expect_channel(const OIIO::ImageBuf& image, int channel, const Stored& stored) {
  const OIIO::ImageSpec& spec = image.nativespec();
  const OIIO::ImageBuf plate((scene::folder() / stored.plate).string());
  ASSERT_EQ(spec.channelformat(channel), stored.real ? OIIO::TypeFloat : OIIO::TypeHalf);
  for (int y = spec.y; y < spec.y + spec.height; ++y) {
    for (int x = spec.x; x < spec.x + spec.width; ++x) {
      const float value = *stored.plate ? plate.getchannel(x, y, 0, stored.channel) : 0.0F;
      ASSERT_EQ(image.getchannel(x, y, 0, channel), stored.real ? value : static_cast<float>(half(value)))
          << " at " << x << ", " << y;
    }
  }
}

// As another library and OpenEXR's own tools see them.
TEST(Layers, AreWrittenAsTheyAreNamed) {
  write_plates();
  std::string nodes = plates;
  for (const Case& each : cases) nodes += scene::write_node(each.inputs, each.file, each.knobs);
  host::render::RenderOptions options;
  options.threads = 1;
  scene::render(nodes, width, height, options);
  for (const Case& each : cases) {
    SCOPED_TRACE(each.file);
    const fs::path path = scene::folder() / each.file;
    scene::told("exrinfo -s", path);
    EXPECT_EQ(OIIO::ImageBuf(path.string()).nsubimages(), static_cast<int>(each.parts.size()));
    for (size_t part = 0; part < each.parts.size(); ++part) {
      const PartOf& expected = each.parts[part];
      const OIIO::ImageBuf image(path.string(), static_cast<int>(part), 0);
      const OIIO::ImageSpec& spec = image.nativespec();
      EXPECT_EQ(spec.get_string_attribute("name"), expected.name);
      const std::array<int, 4> window = {spec.x, spec.y, spec.width, spec.height};
      EXPECT_EQ(window, expected.window);
      EXPECT_EQ(spec.full_width, width);
      ASSERT_EQ(static_cast<size_t>(spec.nchannels), expected.channels.size());
      for (const auto& [name, stored] : expected.channels) {
        SCOPED_TRACE(name);
        expect_channel(image, spec.channelindex(name), stored);
      }
    }
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
  scene::Scene shot(
      plates + scene::read_plate("seq.#.exr", "broken") +
          scene::write_node(R"({"rgba": "comp", "b": "broken", "depth": "z"})", "together/o.#.exr"),
      width, height, options);
  scene::Recorder recorder;
  EXPECT_EQ(shot.run(recorder), host::render::Outcome::some_failed);
  ASSERT_EQ(recorder.frames.size(), 2U);
  EXPECT_EQ(recorder.frames[0].error, "");
  EXPECT_NE(recorder.frames[1].error.find("node \"broken\": frame 2: "), std::string::npos)
      << recorder.frames[1].error;
  const std::vector<fs::path> left(fs::directory_iterator(scene::folder() / "together"), {});
  EXPECT_EQ(left, std::vector<fs::path>{scene::folder() / "together" / "o.1.exr"});
}

// A file's name, what it is of, knobs, and what is said.
constexpr const char* refused = R"(
no.png | {"rgba": "comp", "depth": "z"} | | input "depth": .png files have one image; .exr files have layers and parts
no.dpx | comp | "parts": true | knob "parts": .dpx files have one image
no.jpg | comp | | knob "channels": .jpg files have no "rgba"; they have "rgb"
no.jpg | comp | "channels": "rgb", "depth": "16" | knob "depth": .jpg files have no "16"; they have "auto", "8"
no.jpg | comp | "channels": "rgb", "compression": "zip" | knob "compression": .jpg files have no "zip"; they have none
no.tif | comp | "depth": "half" | .tif files have no "half"; they have "auto", "8", "16", "float"
no.tif | comp | "depth": "16", "compression": "jpeg" | they have "none", "lzw", "zip", "deflate", "packbits"
no.tif | comp | "channels": {"rgba": "Z"} | .tif files have no "Z"; they have "rgba", "rgb"
no.png | comp | "compression": "dwaa" | .png files have no "dwaa"
no.exr | comp | "compression": "lzw" | knob "compression": .exr files have no "lzw"; they have "none", "rle",
no.exr | comp | "compression": "piz:3" | .exr files have no "piz:3"
no.exr | comp | "compression": "zip:10" | "zip:1" (fast) to "zip:9" (small) choose how hard it packs
no.exr | comp | "compression": "zips:0" | .exr files have no "zips:0"
no.exr | {"rgba": "comp", "depth": "z"} | "channels": {"depth": [".R"]} | knob "channels": two channels are called "R"
no.exr | {"rgba": "comp", "depth": "z"} | "channels": {"dpeth": "Z"} | there is no input "dpeth" (did you mean "depth"?)
no.exr | {"rgba": "comp", "depth": "z"} | "depth": {"depth": "8"} | knob "depth": "depth": expected "half" or "float", found "8"
no.exr | {"rgba": "comp", "depth": "z"} | "channels": {"depth": 3} | "depth": expected "rgba", "rgb" or one to four names
no.exr | {"rgba": "comp", "image": "z"} | | inputs "image" and "rgba" are one: the main image
no.exr | {"depth": "nothing"} | | input "depth": there is no node "nothing"
)";

TEST(Layers, ThatAFileCannotHoldAreRefusedWithWhatItHas) {
  write_plates();
  for (const auto& [file, inputs, knobs, reason] : support::rows<4>(refused)) {
    const std::string nodes = plates + scene::write_node(inputs, file, knobs);
    const std::string error = support::error_of([&nodes] { scene::render(nodes, width, height); });
    EXPECT_NE(error.find(reason), std::string::npos) << error << "\nnot " << reason;
    EXPECT_FALSE(fs::exists(scene::folder() / file));
  }
}

}  // namespace
