#include "tests/host/render/scene.h"

#include <gtest/gtest.h>

namespace {

TEST(Constant, FillsTheFormat) {
  scene::Scene shot(R"({"name": "c", "type": "constant", "knobs": {"color": [0.25, 0.5, 1, 1]}},
                       {"name": "b", "type": "blur", "inputs": {"image": "c"}, "knobs": {"size": 3}})");
  const auto image = shot.image("c");
  EXPECT_EQ(image.extent.window, (host::Box{0, 0, 8, 8}));
  EXPECT_EQ(scene::pixel(image, 3, 4), (std::array<float, 4>{0.25F, 0.5F, 1, 1}));
  const auto blurred = shot.image("b");
  EXPECT_EQ(blurred.extent.window, (host::Box{-4, -4, 12, 12}));
  EXPECT_NEAR(scene::pixel(blurred, 4, 4)[2], 1, 0.02);
}

}  // namespace
