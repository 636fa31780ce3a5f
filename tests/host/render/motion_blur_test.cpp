#include "tests/host/render/transform_plates.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using host::Box;
using host::render::HostImage;
using scene::node;
using scene::read_plate;

TEST(MotionBlur, SpreadsAMovingEdge) {
  scene::write_plate(scene::folder() / "white.exr",
                     {20, 2, {"R", "G", "B", "A"}, std::vector<float>(160, 1)});
  const std::string keys = R"("translate": [{"keys": [[0, 0], [10, 100]]}, 0], "motion_blur": 1)";
  scene::Scene shot(read_plate("white.exr") +
                        node("t", "p", "transform", keys + R"(, "shutter": 1, "shutter_position": "start")") +
                        node("still", "p", "transform", R"("translate": [3, 0], "motion_blur": 1)") +
                        node("before", "t", "transform", R"("translate": [0.5, 0])") +
                        node("after", "before", "transform", R"("translate": [-0.5, 0])"),
                    20, 2);
  // Ten pixels a frame, a sample each and one more: at frame 2 they lie at 20, 21, ..., 30.
  for (const char* name : {"t", "after"}) {
    const HostImage image = shot.image(name, 2);
    for (int64_t x = 15; x < 55; ++x) {
      const auto inside = static_cast<double>(std::clamp<int64_t>(std::min(x - 19, 50 - x), 0, 11));
      EXPECT_NEAR(scene::pixel(image, x, 1)[3], inside / 11, 1e-6) << name << " " << x;
    }
  }
  EXPECT_EQ(shot.image("still", 2).extent.window, (Box{3, 0, 23, 2}));
}

// A shutter open from frame 3 to 7 with a sample at each: the mean of what stands at those frames.
TEST(MotionBlur, IsTheMeanOfItsSamples) {
  scene::write_numbered("moving.exr", 24, 16);
  const std::string moves =
      R"("rotate": {"keys": [[0, 0], [10, 20]]}, "translate": [0, {"keys": [[0, 0, "smooth"], [10, 3]]}])";
  // The furthest corner travels some 3.5 pixels, so that 1.05 samples a pixel are 5.
  scene::Scene shot(read_plate("moving.exr") + node("s", "p", "transform", moves) +
                        node("b", "p", "transform",
                             moves + R"(, "motion_blur": 1.05, "shutter": 4, "shutter_position": "start")"),
                    24, 16);
  // Values up to 174, and float positions right to some 5e-6 of a pixel.
  const HostImage blurred = shot.image("b", 3);
  std::vector<HostImage> stills;
  for (int64_t frame = 3; frame <= 7; ++frame) stills.push_back(shot.image("s", frame));
  for (int64_t y = -12; y < 28; ++y) {
    for (int64_t x = -12; x < 36; ++x) {
      double sum = 0;
      for (const HostImage& still : stills) sum += static_cast<double>(scene::pixel(still, x, y)[0]);
      ASSERT_NEAR(scene::pixel(blurred, x, y)[0], sum / 5, 1e-3) << x << ", " << y;
    }
  }
}

}  // namespace
