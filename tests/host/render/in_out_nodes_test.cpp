#include "host/files/pattern.h"
#include "tests/host/render/scene.h"

#include <cstdint>
#include <cstdlib>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Rgba = std::array<float, 4>;

std::string read_node(const std::string& knobs) {
  return R"({"name": "r", "type": "read", "knobs": {)" + knobs + "}}";
}

// A plate whose pixel i has channel c at 10 * i + c.
scene::Plate numbered(int width, int height, std::vector<std::string> channels) {
  scene::Plate plate;
  plate.width = width;
  plate.height = height;
  plate.channels = std::move(channels);
  for (int i = 0; i < width * height; ++i) {
    for (size_t c = 0; c < plate.channels.size(); ++c) {
      plate.pixels.push_back(10 * static_cast<float>(i) + static_cast<float>(c));
    }
  }
  return plate;
}

TEST(ReadNode, PlacesTheDataWindow) {
  scene::write_plate(scene::folder() / "window.exr",
                     {2, 1, {"R", "G", "B", "A"}, {0, 1, 2, 3, 10, 11, 12, 13}, 3, -1, 10, 6});
  scene::Scene shot(read_node(R"("file": "window.exr")"), 10, 6);
  const auto image = shot.image("r");
  // Row -1 from the top of 6 rows is the row at y = 6.
  EXPECT_EQ(image.extent.window, (host::Box{3, 6, 5, 7}));
  EXPECT_EQ(image.extent.format.height, 6);
  EXPECT_EQ(scene::pixel(image, 4, 6), (Rgba{10, 11, 12, 13}));
}

TEST(ReadNode, ScalesByMeansAndTurnsColourLinear) {
  scene::write_plate(scene::folder() / "scale.exr", numbered(4, 2, {"R", "G", "B", "A"}));
  host::render::RenderOptions half;
  half.scale = 0.5;
  scene::Scene small(read_node(R"("file": "scale.exr")"), 4, 2, half);
  const auto image = small.image("r");
  ASSERT_EQ(image.extent.window, (host::Box{0, 0, 2, 1}));
  // Pixels 2, 3, 6 and 7: mean 45, plus the channel.
  EXPECT_EQ(scene::pixel(image, 1, 0), (Rgba{45, 46, 47, 48}));

  scene::write_plate(scene::folder() / "encoded.exr", {1, 1, {"R", "G", "B", "A"}, {0.25F, 0.02F, 0, 0.5F}});
  scene::Scene shot(read_node(R"("file": "encoded.exr", "color": "srgb")"), 1, 1);
  // 0.25 over alpha 0.5 is the encoded 0.5: ((0.5 + 0.055) / 1.055)^2.4 = 0.2140411, times 0.5.
  const Rgba found = scene::pixel(shot.image("r"), 0, 0);
  EXPECT_NEAR(found[0], 0.1070206, 1e-6);
  EXPECT_NEAR(found[1], 0.02 / 12.92, 1e-7);
  EXPECT_EQ(found[3], 0.5F);
}

// A sequence of frames 2 to 4, each of them its number.
TEST(ReadNode, ContinuesSequencesAtTheirEnds) {
  for (int frame = 2; frame <= 4; ++frame) {
    scene::write_plate(scene::folder() / ("seq." + std::to_string(frame) + ".exr"),
                       {1, 1, {"R", "G", "B", "A"}, std::vector<float>(4, static_cast<float>(frame))});
  }
  struct Case {
    const char* before;
    const char* after;
    std::vector<float> frames;  // what stands at -1, 0, ..., 8; 0 for black
  };
  const Case cases[] = {
      {"hold", "hold", {2, 2, 2, 2, 3, 4, 4, 4, 4, 4}},
      {"loop", "loop", {2, 3, 4, 2, 3, 4, 2, 3, 4, 2}},
      {"bounce", "bounce", {3, 4, 3, 2, 3, 4, 3, 2, 3, 4}},
      {"black", "hold", {0, 0, 0, 2, 3, 4, 4, 4, 4, 4}},
  };
  for (const Case& each : cases) {
    for (const char* range : {"", R"(, "first": 2, "last": 4)"}) {
      scene::Scene shot(read_node(std::string(R"("file": "seq.#.exr", "before": ")") + each.before +
                                  R"(", "after": ")" + each.after + "\"" + range),
                        1, 1);
      for (int frame = -1; frame <= 8; ++frame) {
        EXPECT_EQ(scene::pixel(shot.image("r", frame), 0, 0)[0], each.frames[static_cast<size_t>(frame + 1)])
            << each.before << " " << each.after << range << " frame " << frame;
      }
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
          scene::folder() / host::files::frame_path(name, frame),
          {1, 1, {"R", "G", "B", "A"}, std::vector<float>(4, static_cast<float>(frame)), 0, 0, 5, 3});
    };
    for (int64_t frame = 1; frame <= 9; ++frame) {
      if (random() % 3 == 0) write(frame);
    }
    const bool ranged = round % 2 == 1;
    const std::string knobs =
        R"("file": ")" + name + (ranged ? R"(", "first": 2, "last": 8, "missing": ")" : R"(", "missing": ")");
    scene::Scene near(read_node(knobs + "nearest\"")), black(read_node(knobs + "black\""));
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
          EXPECT_NE(scene::failure(near, "r", frame), "");
          EXPECT_NE(scene::failure(black, "r", frame), "");
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

TEST(ReadNode, SaysWhatIsMissing) {
  const std::string folder = scene::folder().string();
  const std::string place = folder + R"(/shot.json: node "r": frame 7: )";
  scene::Scene missing(read_node(R"("file": "gone.####.exr")"));
  EXPECT_EQ(scene::failure(missing, "r", 7), place + folder + "/gone.0007.exr: no such file");
  scene::Scene outside(read_node(R"("file": "gone.%04d.exr", "first": 2, "last": 4)"));
  EXPECT_EQ(scene::failure(outside, "r", 7),
            place + folder + "/gone.0007.exr: the sequence has frames 2 to 4");
  scene::Scene nothing(read_node(R"("layer": "x")"));
  EXPECT_EQ(scene::failure(nothing, "r", 7), place + "knob \"file\": expected a path, found none");
}

}  // namespace
