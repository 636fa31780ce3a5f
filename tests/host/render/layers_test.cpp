#include "tests/host/render/scene.h"
#include "tests/support/error.h"
#include "tests/support/table.h"

#include <cstddef>
#include <filesystem>
#include <iterator>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <OpenImageIO/imagebuf.h>
#include <gtest/gtest.h>
#include <half.h>

namespace {

namespace fs = std::filesystem;

constexpr int width = 24, height = 20;

// Values that no half holds, in windows of their own: colour, a depth of one channel, motion without an
// alpha.
void write_plates() {
  std::mt19937 random(7);
  const auto write = [&random](const char* file, int x, int y, int w, int h,
                               std::vector<std::string> channels) {
    scene::Plate plate = scene::noise(random, w, h, std::move(channels));
    std::tie(plate.x, plate.y, plate.full_width, plate.full_height) = std::tuple(x, y, width, height);
    scene::write_plate(scene::folder() / file, plate);
  };
  write("comp.exr", 0, 0, width, height, {"R", "G", "B", "A"});
  write("small.exr", 5, 3, 7, 9, {"R", "G", "B", "A"});
  write("z.exr", 2, 6, 9, 4, {"Z"});
  write("motion.exr", -3, -2, 40, 30, {"motion.u", "motion.v"});
}

const std::string plates = scene::read_plate("comp.exr", "comp") + scene::read_plate("small.exr", "small") +
                           scene::read_plate("z.exr", "z") + scene::read_plate("motion.exr", "motion");

// A file, its images and knobs; each of its parts with its name, window (x, y, width, height, y down) and
// channels: those of plates by number, as halves or, where that is told by an f, floats. Names as they stand,
// colours picked by theirs, and the same image in two layers; five are more than may be on their way by
// themselves.
constexpr const char* written = R"(
one.exr    | comp | | | 0 0 24 20 | R=comp.0 G=comp.1 B=comp.2 A=comp.3
layers.exr | {"rgba": "comp", "depth": "z", "key": "small"} | "channels": {"depth": ["Z"], "key": "A"}, "depth": {"depth": "float"} | | 0 0 24 20 | R=comp.0 G=comp.1 B=comp.2 A=comp.3 depth.Z=z.0f key.A=small.3
plain.exr  | {"image": "comp", "mv": "motion", "fg": "small"} | "depth": "float", "channels": {"image": "A"} | | 0 0 24 20 | A=comp.3f mv.R=motion.0f mv.G=motion.1f mv.B=black.0f fg.R=small.0f fg.G=small.1f fg.B=small.2f fg.A=small.3f
names.exr  | {"rgba": "comp", "a": "z", "b": "z", "c": "small", "d": "motion"} | "channels": {"a": [".Z"], "b": "left.Z", "c": ["Blue", "x"], "d": ["u", "v"]}, "compression": "piz" | | 0 0 24 20 | R=comp.0 G=comp.1 B=comp.2 A=comp.3 Z=z.0 left.Z=z.0 c.Blue=small.2 c.x=small.1 d.u=motion.0 d.v=motion.1
hull.exr   | {"fg": "small", "depth": "z"} | "channels": {"depth": "Z", "fg": ["R"]} | | 2 3 10 9 | depth.Z=z.0 fg.R=small.0
parts.exr  | {"rgba": "comp", "depth": "z", "mv": "motion"} | "parts": true, "channels": {"depth": "Z", "mv": ["u", "v"]}, "depth": {"depth": "float"}, "compression": "piz" | rgba | 0 0 24 20 | R=comp.0 G=comp.1 B=comp.2 A=comp.3
parts.exr  | | | depth | 2 6 9 4   | Z=z.0f
parts.exr  | | | mv    | 0 0 24 20 | u=motion.0 v=motion.1
over.exr   | {"rgba": "comp", "mv": "motion"} | "parts": true, "overscan": true, "channels": {"mv": ["u", "v"]} | rgba | 0 0 24 20 | R=comp.0 G=comp.1 B=comp.2 A=comp.3
over.exr   | | | mv    | -3 -2 40 30 | u=motion.0 v=motion.1
)";

void expect_channel(const OIIO::ImageBuf& image, const std::string& expected) {
  const size_t equals = expected.find('='), dot = expected.find('.', equals);
  const OIIO::ImageSpec& spec = image.nativespec();
  const int channel = spec.channelindex(expected.substr(0, equals)), from = expected.at(dot + 1) - '0';
  const bool real = expected.back() == 'f';
  const std::string plate_name = expected.substr(equals + 1, dot - equals - 1) + ".exr";
  const OIIO::ImageBuf plate((scene::folder() / plate_name).string());
  ASSERT_EQ(spec.channelformat(channel), real ? OIIO::TypeFloat : OIIO::TypeHalf);
  for (int y = spec.y; y < spec.y + spec.height; ++y) {
    for (int x = spec.x; x < spec.x + spec.width; ++x) {
      const float value = plate_name == "black.exr" ? 0 : plate.getchannel(x, y, 0, from);
      ASSERT_EQ(image.getchannel(x, y, 0, channel), real ? value : static_cast<float>(half(value)))
          << " at " << x << ", " << y;
    }
  }
}

// As another library and OpenEXR's own tools see them.
TEST(Layers, AreWrittenAsTheyAreNamed) {
  write_plates();
  std::string nodes = plates;
  for (const auto& [file, inputs, knobs, part, window, channels] : support::rows<6>(written))
    if (!inputs.empty()) nodes += scene::write_node(inputs, file, knobs);
  host::render::RenderOptions options;
  options.threads = 1;
  scene::render(nodes, width, height, options);
  std::map<std::string, int> parts;  // of each file
  for (const auto& [file, inputs, knobs, part, window, channels] : support::rows<6>(written)) {
    const OIIO::ImageBuf image((scene::folder() / file).string(), parts[file]++, 0);
    const OIIO::ImageSpec& spec = image.nativespec();
    std::ostringstream numbers;
    numbers << spec.x << ' ' << spec.y << ' ' << spec.width << ' ' << spec.height;
    EXPECT_EQ(spec.get_string_attribute("name"), part) << file;
    EXPECT_EQ(numbers.str(), window) << file;
    EXPECT_EQ(spec.full_width, width) << file;
    std::istringstream words(channels);
    const std::vector<std::string> all(std::istream_iterator<std::string>(words), {});
    ASSERT_EQ(spec.channelnames.size(), all.size()) << file;
    for (const std::string& each : all) {
      SCOPED_TRACE(file + ": " + each);
      expect_channel(image, each);
    }
  }
  for (const auto& [file, count] : parts) {
    scene::told("exrinfo -s", scene::folder() / file);
    EXPECT_EQ(OIIO::ImageBuf((scene::folder() / file).string()).nsubimages(), count) << file;
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
