#include "host/files/pattern.h"
#include "host/frame/frame_error.h"
#include "tests/host/render/scene.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <OpenImageIO/imagebuf.h>
#include <gtest/gtest.h>
#include <half.h>

namespace {

TEST(ReadNode, ScalesByMeansAndTurnsColourLinear) {
  scene::write_numbered("scale.exr", 4, 2);
  host::render::RenderOptions half;
  half.scale = 0.5;
  const auto image = scene::Scene(scene::read_plate("scale.exr"), 4, 2, half).image("p");
  EXPECT_EQ(image.extent.window, (host::Box{0, 0, 2, 1}));
  EXPECT_EQ(scene::pixel(image, 1, 0)[0], 8.5F);  // of 3, 4, 13 and 14

  scene::write_plate("encoded.exr", {1, 1, scene::rgba_names, {0.25F, 0.02F, 0, 0.5F}});
  scene::Scene shot(scene::node("r", "[]", "read", R"("file": "encoded.exr", "color": "srgb")"), 1, 1);
  // 0.25 over alpha 0.5 is the encoded 0.5: ((0.5 + 0.055) / 1.055)^2.4 = 0.2140411, times 0.5.
  const auto found = scene::pixel(shot.image("r"), 0, 0);
  EXPECT_NEAR(found[0], 0.1070206, 1e-6);
  EXPECT_NEAR(found[1], 0.02 / 12.92, 1e-7);
  EXPECT_EQ(found[3], 0.5F);
}

// A sequence of frames 2 to 4, each of them its number.
TEST(ReadNode, ContinuesSequencesAtTheirEnds) {
  for (int frame = 2; frame <= 4; ++frame)
    scene::write_plate("seq." + std::to_string(frame) + ".exr",
                       {1, 1, scene::rgba_names, std::vector<float>(4, static_cast<float>(frame))});
  // At -1, 0, ..., 8; 0 for black.
  const std::pair<const char*, std::vector<float>> rows[] = {
      {R"("before": "hold", "after": "hold")", {2, 2, 2, 2, 3, 4, 4, 4, 4, 4}},
      {R"("before": "loop", "after": "loop")", {2, 3, 4, 2, 3, 4, 2, 3, 4, 2}},
      {R"("before": "bounce", "after": "bounce")", {3, 4, 3, 2, 3, 4, 3, 2, 3, 4}},
      {R"("before": "black", "after": "hold")", {0, 0, 0, 2, 3, 4, 4, 4, 4, 4}}};
  for (const auto& [ends, expected] : rows) {
    for (const std::string range : {"", R"(, "first": 2, "last": 4)"}) {
      scene::Scene shot(scene::node("r", "[]", "read", R"("file": "seq.#.exr", )" + (ends + range)), 1, 1);
      std::vector<float> found;
      for (int frame = -1; frame <= 8; ++frame)
        found.push_back(scene::pixel(shot.image("r", frame), 0, 0)[0]);
      EXPECT_EQ(found, expected) << ends << range;
    }
  }

  // Frames that turn up are seen by a renderer that has answered without them.
  scene::Scene held(scene::node("r", "[]", "read", R"("file": "seq.#.exr", "after": "hold")"), 1, 1);
  for (const int last : {4, 5, 7}) {
    scene::write_plate("seq." + std::to_string(last) + ".exr",
                       {1, 1, scene::rgba_names, std::vector<float>(4, static_cast<float>(last))});
    // At another frame each time, for that is when files are asked about.
    EXPECT_EQ(scene::pixel(held.image("r", 20 - last), 0, 0)[0], static_cast<float>(last));
  }
}

// What only files see of a plate comes out bit by bit, larger than the format, cut to it and by way of
// another write, without a texture; what somebody draws with is drawn, whatever a file or a cache has of it.
TEST(ReadNode, LeavesPixelsAsTheyWereDecodedWhereNobodyDraws) {
  std::mt19937 random(3);
  scene::Plate plate = scene::noise(random, 12, 9);
  plate.pixels[4] = std::numeric_limits<float>::denorm_min();
  plate.pixels[5] = -1e30F;
  std::tie(plate.x, plate.y, plate.full_width, plate.full_height) = std::tuple(-2, -3, 8, 10);
  scene::write_plate("plate.exr", plate);
  const std::string knobs = R"("depth": "float")";
  const std::string written = scene::read_plate("plate.exr") + scene::write_node("p", "in.exr", knobs) +
                              scene::write_node("p", "all.exr", knobs + R"(, "overscan": true)") +
                              scene::write_node("out all.exr", "again.exr", knobs + R"(, "overscan": true)");
  const std::string graded = written + scene::node("half", "p", "grade", R"("multiply": 0.5)");
  host::render::RenderOptions options;
  options.existing = host::plan::Existing::overwrite;
  options.frames = {1};
  for (const bool drawn : {false, true}) {
    scene::Scene shot(drawn ? graded + scene::write_node("half", "half.exr", knobs) : written, 8, 10,
                      options);
    scene::Recorder recorder;
    ASSERT_EQ(shot.run(recorder), host::render::Outcome::done);
    EXPECT_EQ(recorder.stats.textures_created > 0, drawn);
    EXPECT_EQ(recorder.stats.bytes_read_back > 0, drawn);
    const OIIO::ImageBuf expected((scene::folder() / "plate.exr").string());
    for (const std::string file : {"in.exr", "all.exr", "again.exr"}) {
      const OIIO::ImageBuf found((scene::folder() / file).string());
      EXPECT_EQ(found.spec().width, file == "in.exr" ? 8 : 12);
      for (OIIO::ImageBuf::ConstIterator<float> at(found); !at.done(); ++at)
        for (int c = 0; c < 4; ++c)
          ASSERT_EQ(at[c], expected.getchannel(at.x(), at.y(), 0, c)) << file << at.x() << ", " << at.y();
    }
  }
  scene::Scene shot(graded, 8, 10);
  const auto plain = shot.image("p"), half = shot.image("half");
  EXPECT_EQ(plain.rgba, plate.pixels);
  for (size_t i = 0; i < plain.rgba.size(); ++i) {
    const float expected = plain.rgba[i] * (i % 4 == 3 ? 1.0F : 0.5F);
    ASSERT_NEAR(half.rgba.at(i), expected, std::max(1.0F, std::abs(expected)) * 1e-6F) << i;
  }
}

// Every half that is a number, in an image that comes through the ring in several strips where it is
// drawn: bit by bit, in half the memory of floats. What is made of it has all the bits of floats.
TEST(ReadNode, KeepsHalvesAsTheyAre) {
  constexpr int width = 600, height = 1000;
  std::vector<half> pixels(size_t{4} * width * height);
  for (size_t i = 0; i < pixels.size(); ++i) {
    pixels[i].setBits(static_cast<uint16_t>(i * 40503));
    if (pixels[i].isNan()) pixels[i] = 0;
  }
  OIIO::ImageSpec spec(width, height, 4, OIIO::TypeHalf);
  const auto file = OIIO::ImageOutput::create("halves.exr");
  ASSERT_TRUE(file && file->open((scene::folder() / "halves.exr").string(), spec) &&
              file->write_image(OIIO::TypeHalf, pixels.data()) && file->close());
  const std::string nodes = scene::read_plate("halves.exr") +
                            scene::node("c", "p", "crop", R"("box": [7, 30, 590, 990])") +
                            scene::constant("third", {0.333333F, 0.333333F, 0.333333F, 0.333333F}) +
                            scene::node("m", R"(["third", "p"])", "merge", R"("operation": "plus")") +
                            scene::node("n", R"(["third", "m"])", "merge", R"("operation": "plus")");
  host::render::RenderOptions options;
  options.existing = host::plan::Existing::overwrite;
  options.frames = {1};
  const struct {
    const char* node;
    host::Box box;    // of the pixels in the file, y down
    uint64_t texels;  // bytes
    float added = 0;  // twice
  } rows[] = {{"p", {0, 0, width, height}, 0},
              {"c", {7, 10, 590, 970}, 8 * width * height + 16 * 583 * 960},
              {"n", {0, 0, width, height}, (8 + 3 * 16) * width * height, 0.333333F}};
  for (const auto& row : rows) {
    const std::string file_name = std::string("halves.") + row.node + ".exr";
    scene::Recorder recorder;
    scene::Scene shot(nodes + scene::write_node(row.node, file_name, R"("depth": "float")"), width, height,
                      options);
    ASSERT_EQ(shot.run(recorder), host::render::Outcome::done);
    EXPECT_EQ(recorder.stats.peak_texture_bytes, row.texels);
    EXPECT_LE(recorder.stats.peak_decoded_bytes, size_t{8} * width * height);
    EXPECT_LE(recorder.stats.peak_ring_bytes, size_t{8} << 20);
    const OIIO::ImageBuf found((scene::folder() / file_name).string());
    const OIIO::ROI roi = found.roi();
    EXPECT_EQ((host::Box{roi.xbegin, roi.ybegin, roi.xend, roi.yend}), row.box);
    for (OIIO::ImageBuf::ConstIterator<float> at(found); !at.done(); ++at) {
      for (int c = 0; c < 4; ++c)
        ASSERT_EQ(at[c],
                  pixels[static_cast<size_t>(4 * (at.y() * width + at.x()) + c)] + row.added + row.added)
            << at.x() << ", " << at.y();
    }
  }
}

// Against a search of all frames that stand: sequences of frames 1 to 9 with holes, each frame its number,
// before and after one more file turns up.
TEST(ReadNode, FillsHolesAsAskedAndSeesFilesThatTurnUp) {
  std::mt19937 random(13);
  for (int round = 0; round < 12; ++round) {
    const std::string name = "hole" + std::to_string(round) + ".#.exr";
    std::set<int64_t> standing;
    const auto write = [&](int64_t frame) {
      standing.insert(frame);
      scene::write_plate(
          host::files::frame_path(name, frame),
          {1, 1, scene::rgba_names, std::vector<float>(4, static_cast<float>(frame)), 0, 0, 5, 3});
    };
    for (int64_t frame = 1; frame <= 9; ++frame)
      if (random() % 3 == 0) write(frame);
    const bool ranged = round % 2 == 1;
    const std::string knobs =
        R"("file": ")" + name + (ranged ? R"(", "first": 2, "last": 8, "missing": ")" : R"(", "missing": ")");
    scene::Scene near(scene::node("r", "[]", "read", knobs + "nearest\"")),
        black(scene::node("r", "[]", "read", knobs + "black\""));
    for (const bool again : {false, true}) {
      for (int64_t frame = 1; frame <= 9; ++frame) {
        int64_t expected = 100;  // nowhere near
        for (const int64_t other : standing) {
          const bool nearer = std::abs(other - frame) < std::abs(expected - frame);
          if (nearer && (!ranged || (other >= 2 && other <= 8))) expected = other;
        }
        const bool ends = !standing.empty() && frame >= *standing.begin() && frame <= *standing.rbegin();
        const bool inside = ranged ? frame >= 2 && frame <= 8 : ends;
        SCOPED_TRACE(name + " at " + std::to_string(frame) + (again ? " again" : ""));
        if (expected == 100 || !inside) {
          EXPECT_THROW(near.image("r", frame), host::frame::FrameError);
          EXPECT_THROW(black.image("r", frame), host::frame::FrameError);
          continue;
        }
        EXPECT_EQ(scene::pixel(near.image("r", frame), 0, 2)[0], static_cast<float>(expected));
        const auto image = black.image("r", frame);
        EXPECT_EQ(scene::pixel(image, 0, 2)[0], standing.count(frame) ? static_cast<float>(frame) : 0.0F);
        EXPECT_EQ(image.extent.format, (host::Format{5, 3}));
      }
      write(3 + round % 5);
    }
  }
}

}  // namespace
