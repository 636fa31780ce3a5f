#include "tests/host/render/scene.h"

#include <map>

#include <gtest/gtest.h>

namespace {

// What each node shows at a frame, as shares of the input's frames.
struct Case {
  const char* type;
  const char* knobs;
  int64_t frame;
  std::map<int, double> shares;
};

const std::vector<Case> cases = {
    {"time_offset", R"("offset": 3)", 8, {{5, 1}}},
    // The composition's frames, 1 to 10, backwards.
    {"time_offset", R"("reverse": true)", 8, {{3, 1}}},
    {"time_offset", R"("reverse": true, "offset": 1, "first": 5, "last": 9)", 8, {{7, 1}}},
    {"frame_hold", R"("frame": 2, "every": 3)", 7, {{5, 1}}},
    {"frame_blend", R"("count": 3)", 8, {{6, 1 / 3.0}, {7, 1 / 3.0}, {8, 1 / 3.0}}},
    {"frame_blend", R"("use_range": true, "range": [5, 2])", 8, {{2, .25}, {3, .25}, {4, .25}, {5, .25}}},
    {"time_blur", R"("width": 2)", 5, {{4, .25}, {5, .5}, {6, .25}}},
    // A ramp that is 4 at frame 4, or a hair below.
    {"frame_blend", R"("count": {"keys": [[1, 1], [10, 10]]})", 4, {{1, .25}, {2, .25}, {3, .25}, {4, .25}}},
    // 4.5 and 5.5 lie between two frames, of which each shows half.
    {"shutter", R"("samples": 5, "shutter": 2)", 5, {{4, .3}, {5, .4}, {6, .3}}},
    {"shutter", R"("samples": 1, "shutter": 2, "shutter_position": "start")", 5, {{6, 1}}},
    {"shutter", R"("samples": 1, "shutter": 2, "shutter_position": "end")", 5, {{4, 1}}},
    {"shutter", R"("samples": 1, "shutter_position": "custom", "shutter_offset": -3.25)", 5, {{2, 1}}},
    {"retime", R"("speed": 0.5, "after": "continue", "last": 2, "first": 1)", 7, {{4, 1}}},
    {"retime", R"("first": 3, "last": 6, "output_ends": "both", "output": [1, 8])", 5, {{5, 1}}},
    {"retime", R"("speed": 0.25, "rounding": "blend")", 4, {{1, .25}, {2, .75}}},
    // At double speed the range of 10 frames ends at frame 5, which shows frame 9.
    {"retime", R"("speed": 2)", 8, {{9, 1}}},
    {"retime", R"("speed": 2, "after": "black")", 8, {}},
    // At half speed the last output frame, 20, asks for 10.5.
    {"retime", R"("speed": 0.5, "rounding": "blend")", 20, {{10, 1}}},
    {"retime", R"("speed": 0.5, "rounding": "blend", "after": "loop")", 20, {{1, .5}, {10, .5}}},
    {"retime", R"("speed": 0.5, "rounding": "blend", "after": "black")", 20, {{10, .5}}},
    {"retime", R"("speed": 0.5, "reverse": true, "rounding": "down", "after": "bounce")", 20, {{2, 1}}},
    {"retime", R"("first": 3, "last": 6, "output_ends": "last", "output": [0, 10])", 8, {{4, 1}}},
    {"retime", R"("output_ends": "first", "output": [3, 0], "before": "black")", 2, {}},
};

// Frame f is a plate of one pixel at (f, 0), so that every share is seen on its own.
void write_frames() {
  for (int frame = 1; frame <= 10; ++frame)
    scene::write_plate("time." + std::to_string(frame) + ".exr",
                       {1, 1, scene::rgba_names, {1, 2, 3, 1}, frame, 0, 12, 1});
}

TEST(TimeNodes, ShowTheirSharesOfFrames) {
  write_frames();
  for (const Case& each : cases) {
    SCOPED_TRACE(std::string(each.type) + " {" + each.knobs + "} at " + std::to_string(each.frame));
    scene::Scene shot(scene::read_plate("time.#.exr") + scene::node("t", "p", each.type, each.knobs), 12, 1);
    const auto image = shot.image("t", each.frame);
    for (int x = 0; x < 12; ++x) {
      const auto share = each.shares.find(x);
      const double expected = share == each.shares.end() ? 0 : share->second;
      EXPECT_NEAR(scene::pixel(image, x, 0)[0], expected, 1e-6) << x;
      EXPECT_NEAR(scene::pixel(image, x, 0)[2], 3 * expected, 1e-6) << x;
    }
    // One frame is no sum: nothing is drawn, and its window stays as small as it was.
    if (!each.shares.empty() && each.shares.begin()->second < 1) continue;
    EXPECT_EQ(shot.renderer().stats().draws, 0);
    EXPECT_EQ(host::box_width(image.extent.window), static_cast<int64_t>(each.shares.size()));
  }
}

// Shares that differ from frame to frame although the frames read are the same are other results.
TEST(TimeNodes, KeepResultsOfOtherSharesApart) {
  write_frames();
  scene::Scene shot(scene::read_plate("time.#.exr") +
                        scene::node("r", "p", "retime", R"("speed": 0.25, "rounding": "blend")") +
                        scene::node("m", "r", "transform", R"("translate": [1, 0])") +
                        scene::node("o", "m", "time_offset", R"("offset": 1)") +
                        scene::node("n", "o", "transform", R"("translate": [-1, 0])"),
                    12, 1);
  // Transforms fold through a node that only picks a frame.
  for (const int frame : {2, 3, 4, 3, 2}) {
    EXPECT_NEAR(scene::pixel(shot.image("r", frame), 2, 0)[0], 0.25 * (frame - 1), 1e-6) << frame;
    EXPECT_NEAR(scene::pixel(shot.image("n", frame + 1), 2, 0)[0], 0.25 * (frame - 1), 1e-6) << frame;
  }
}

}  // namespace
