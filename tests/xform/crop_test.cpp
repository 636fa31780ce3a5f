#include <qv/xform/crop.h>
#include <qv/xform/motion_blur.h>

#include "tests/xform/routines.h"

#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

namespace {

using qv::xform::Box;
using qv::xform::crop_plan;
using qv::xform::CropPlan;
using qv::xform::Matrix;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

TEST(Crop, PlansPixelsTextureRectangleAndWindow) {
  struct Row {
    double x0, y0, x1, y1;
    bool clip, reformat;
    CropPlan expected;
  };
  const Row rows[] = {
      {10.5,
       0,
       10.5,
       5,
       false,
       false,
       {{10.5, 0, 10.5, 5}, {10, 0, 11, 5}, {.5, 0, .5, 5}, {640, 480}, {10, 0, 11, 5}}},
      {.4,
       .4,
       100.4,
       50.4,
       true,
       true,
       {{.4, .4, 100.4, 50.4}, {0, 0, 100, 50}, {.4, 50 - 50.4, 100.4, 50 - .4}, {100, 50}, {0, 0, 100, 50}}},
      {-9,
       -9,
       9e3,
       70.25,
       true,
       false,
       {{0, 0, 200, 70.25}, {0, 0, 200, 70}, {0, -.25, 200, 70}, {640, 480}, {0, 0, 200, 70}}},
      {300,
       20,
       310,
       30,
       true,
       true,
       {{300, 20, 300, 30}, {300, 20, 301, 30}, {0, 0, 0, 10}, {1, 10}, {0, 0, 1, 10}}},
      {nan,
       2,
       nan,
       1,
       true,
       true,
       {{0, 2, 200, 2}, {0, 2, 200, 3}, {0, 1, 200, 1}, {200, 1}, {0, 0, 200, 1}}},
  };
  for (const Row& row : rows) {
    const CropPlan plan =
        crop_plan(row.x0, row.y0, row.x1, row.y1, row.clip, {0, 0, 200, 100}, row.reformat, 640, 480);
    EXPECT_EQ(plan.box, row.expected.box) << row.x0;
    EXPECT_EQ(plan.pixels, row.expected.pixels) << row.x0;
    EXPECT_EQ(plan.local, row.expected.local) << row.x0;
    EXPECT_EQ(plan.format, row.expected.format) << row.x0;
    EXPECT_EQ(plan.window, row.expected.window) << row.x0;
  }
  EXPECT_THROW(crop_plan(nan, 0, 1, 1, false, {}, false, 1, 1), std::invalid_argument);
  EXPECT_THROW(crop_plan(0, 0, 9.2e18, 1, false, {}, false, 1, 1), std::overflow_error);
  // Both edges are in range, their distance is not.
  EXPECT_THROW(crop_plan(-9e18, 0, 9e18, 1, false, {}, true, 1, 1), std::overflow_error);
}

TEST(MotionBlur, SamplesFollowTheLongestWayOfACorner) {
  ASSERT_TRUE(install_routines());
  const auto shifted = [](double x) { return Matrix{1, 0, x, 0, 1, 0, 0, 0, 1}; };
  const auto zoomed = [](double s) { return Matrix{s, 0, 0, 0, s, 0, 0, 0, 1}; };
  const Matrix horizon{1, 0, 0, 0, 1, 0, 0, 0, 0};
  struct Row {
    std::vector<std::optional<Matrix>> path;
    double quality;
    std::int64_t samples;
  };
  const Row rows[] = {
      {{}, 1, 0},
      {{std::nullopt, std::nullopt}, nan, 0},
      {{shifted(5), shifted(5), shifted(5)}, 1, 0},
      {{shifted(0), shifted(.00009)}, 1, 0},
      {{shifted(0), std::nullopt, horizon, shifted(10)}, 1, 11},
      {{shifted(0), shifted(-10), shifted(0)}, .5, 11},
      {{shifted(0), shifted(1e9)}, 1, 128},
      {{zoomed(1), zoomed(2)}, 1, 51},  // the far corner of 30 x 40, by the diagonal
  };
  for (const Row& row : rows) {
    EXPECT_EQ(qv::xform::mblur_samples(row.quality, row.path, 30, 40), row.samples) << row.path.size();
  }
  EXPECT_THROW(qv::xform::mblur_samples(nan, rows[4].path, 1, 1), std::invalid_argument);
  EXPECT_THROW(qv::xform::mblur_samples(1, {shifted(0), shifted(1e19)}, 1, 1), std::overflow_error);
  EXPECT_THROW(qv::xform::mblur_samples(1, {shifted(0), shifted(nan)}, 1, 1), std::invalid_argument);
}

}  // namespace
