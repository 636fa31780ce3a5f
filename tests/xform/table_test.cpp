#include <qv/xform/crop.h>
#include <qv/xform/motion_blur.h>
#include <qv/xform/steps.h>

#include "tests/xform/routines.h"

#include <cmath>
#include <limits>
#include <string>

#include <gtest/gtest.h>

namespace {

using namespace qv::xform;
using Step = std::vector<double>;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();
constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();

Matrix scale(double x, double y, double to_x = 0, double to_y = 0) {
  return {x, 0, to_x, 0, y, to_y, 0, 0, 1};
}

Step reformat(double type, std::vector<double> sizes, double resize, std::vector<double> flags = {}) {
  Step step{1, type};
  sizes.resize(9, 1);
  flags.resize(5);
  step.insert(step.end(), sizes.begin(), sizes.end());
  step.push_back(resize);
  step.insert(step.end(), flags.begin(), flags.end());
  return step;
}

// What the call throws, or "none".
template <class Call>
std::string error(Call call) {
  try {
    call();
  } catch (const std::invalid_argument& e) {
    return e.what();
  } catch (const std::overflow_error& e) {
    return e.what();
  } catch (const std::out_of_range& e) {
    return e.what();
  }
  return "none";
}

constexpr auto not_a_number = "cannot convert float NaN to integer";
constexpr auto too_large = "cannot convert float infinity to integer";

TEST(Transforms, StepsByThemselvesNeedNoRoutines) {
  EXPECT_FALSE(set_blas(1, 1, 1, 0) || has_blas() || set_blas(0, 0, 0, 0) || has_blas());
  struct Row {
    Step step;
    std::int64_t width, height;  // of what a 200 x 100 image becomes
    std::optional<Matrix> matrix;
  };
  const Row rows[] = {
      {{0, 7, 8, 0, 1, 1, 0, 0, 0, 3, 4, 0}, 200, 100, scale(1, 1, 7, 8)},
      {{0, 0, 0, 0, 2, 3, .5, .25, 0, 0, 0, 0}, 200, 100, Matrix{2, 1, 0, .75, 3.375, 0, 0, 0, 1}},
      {{0, 0, 0, 0, 2, 3, .5, .25, 1, 0, 0, 0}, 200, 100, Matrix{2.25, 1, 0, .75, 3, 0, 0, 0, 1}},
      {{0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 1}, 200, 100, std::nullopt},
      {reformat(0, {400.9, 300, 2}, 1), 400, 300, scale(2, 4)},
      {reformat(7, {400, 300, 2}, 2, {1}), 400, 300, scale(1.5, 3, 50, 0)},
      {reformat(0, {400, 300, 1}, 3), 400, 300, scale(2, 2)},                  // fit: the width
      {reformat(0, {400, 300, 1}, 4, {nan}), 400, 300, scale(3, 3, -100, 0)},  // fill: the height
      {reformat(0, {400, 100, 1}, 3), 400, 100, scale(1, 1)},                  // fit: the height
      {reformat(0, {400, 100, 1}, 4), 400, 100, scale(2, 2)},                  // fill: the width
      {reformat(0, {100, 300, 9}, 5.9), 100, 300, scale(.5, 3)},
      {reformat(0, {100, 300}, nan, {1}), 100, 300, scale(1, 1, -50, 100)},
      {reformat(0, {0, 0}, 0), 0, 0, scale(1, 1)},
      {reformat(0, {1e30, -inf}, 0), highest, -highest - 1, scale(1, 1)},
      {reformat(1, {0, 0, 0, 50.5, 7, 0, 2}, 1), 50, 12, scale(.25, .5)},
      {reformat(1, {0, 0, 0, 50, -7, nan, 2}, 0), 50, 1, scale(1, 1)},
      {reformat(2, {0, 0, 0, 0, 0, 0, 0, .0125, .001}, 0), 2, 1, scale(1, 1)},  // 2.5 to even
      {reformat(0, {100, 200}, 5, {0, 0, 0, 1}), 100, 200, Matrix{0, -1, 100, 1, 0, 0, 0, 0, 1}},
      {reformat(0, {100, 200}, 0, {0, nan, 1, 1}), 100, 200, Matrix{0, 1, 0, -1, 0, 200, 0, 0, 1}},
  };
  for (const Row& row : rows) {
    std::int64_t width = 200;
    std::int64_t height = 100;
    bool clip = row.step[0] == 0;
    EXPECT_EQ(step_matrix(row.step, width, height, clip), row.matrix) << &row - rows;
    EXPECT_EQ(std::pair(width, height), std::pair(row.width, row.height)) << &row - rows;
    EXPECT_EQ(clip, row.step[0] == 1);
  }
  // The width squared is no 64-bit number, but what the height comes to is.
  std::int64_t side = highest;
  bool clip = false;
  step_matrix(reformat(1, {0, 0, 0, 1e30, 0, 0, 4}, 0, {0, 0, 0, 0, nan}), side, side, clip);
  EXPECT_EQ(side, std::int64_t{1} << 61);
  EXPECT_FALSE(clip);
}

TEST(Transforms, ClipsMoveWithTheImageAndMeet) {
  ASSERT_TRUE(install_routines());
  const Step move{0, 150, -20, 0, 1, 1, 0, 0, 0, 0, 0, 0};
  const Step format = reformat(0, {100, 80}, 0);
  const Step horizon{2, 0, 0, 1, 0, 9, 0, 0, 1, 9, 0, 9, 9, 9, 9, -.01, 0, 9, 1};  // 9: not looked at
  const std::pair<std::vector<Step>, std::optional<Box>> rows[] = {
      {{move}, {}},
      {{format, move}, Box{150, -20, 250, 60}},
      {{format, move, format}, Box{150, 0, 151, 1}},
      {{move, format, reformat(0, {50, 200}, 0)}, Box{0, 0, 50, 80}},
      {{format, horizon}, {}},
      {{format, horizon, format}, Box{0, 0, 100, 80}},
      {{reformat(0, {0, -5}, 0)}, Box{0, 0, 0, -5}},
  };
  for (const auto& [steps, clip] : rows) {
    EXPECT_EQ(total(steps, 9, 9).clip, clip);
  }
  for (const double points : {2., 3., 4.}) {
    Step coincident(static_cast<std::size_t>(19 + 4 * points), 5.0);
    coincident[0] = 2;
    coincident[2] = points;
    EXPECT_FALSE(total({coincident, {}}, 9, 9).matrix);
  }
}

TEST(Transforms, ErrorsNameWhatIsWrong) {
  ASSERT_TRUE(install_routines());
  const std::string pin = "cornerpin step: 3 + 4 n + 16 values";
  const std::pair<Step, std::string> rows[] = {
      {{}, "invalid vector subscript"},
      {{-0.9}, "transform step: 12 values"},
      {Step(16, 1), "reformat step: 17 values"},
      {{2, 0}, pin},
      {Step(20, 2), pin},
      {{2, 0, -3, 0, 0, 0, 0}, pin},
      {{2, 0, 1e300}, pin},
      {{3}, "unknown step kind"},
      {{nan}, "unknown step kind"},
      {{0x1p31}, "unknown step kind"},
      {reformat(nan, {}, 0), "unknown step kind"},
      {reformat(2, {0, 0, 0, 0, 0, 0, 0, nan, 1}, 0), not_a_number},
      {reformat(2, {0, 0, 0, 0, 0, 0, 0, 1, 9.2e18}, 0), too_large},
      {reformat(1, {0, 0, 0, 9, 0, 0, 0}, 0), too_large},
  };
  for (const auto& [step, message] : rows) {
    EXPECT_EQ(error([s = step] { total({s}, 200, 1); }), message);
  }
  const Box box{1, 1, 0, 1};
  const std::int64_t least = -highest - 1;
  EXPECT_EQ(h_bbox({0, 0, 9, 9}, scale(1, 1, 5e-7, -5e-7), 1), (Box{-1, -1, 10, 10}));
  EXPECT_EQ(error([&] { h_bbox(box, scale(1, 1), least); }), too_large);
  EXPECT_EQ(error([&] { h_bbox(box, scale(1, 1), highest); }), too_large);
  EXPECT_EQ(error([&] { h_bbox(box, scale(inf, 1), 0); }),
            not_a_number);  // by its second corner: 0 times infinity
  EXPECT_EQ(error([] { crop_plan(nan, 0, 1, 1, false, {}, false, 1, 1); }), not_a_number);
  EXPECT_EQ(error([] { crop_plan(0, 0, 9.2e18, 1, false, {}, false, 1, 1); }), too_large);
  EXPECT_EQ(error([] { crop_plan(-9e18, 0, 9e18, 1, false, {}, true, 1, 1); }), too_large);  // the distance
  EXPECT_EQ(error([] { mblur_samples(nan, {scale(1, 1), scale(2, 2)}, 1, 1); }), not_a_number);
  EXPECT_EQ(error([] { mblur_samples(1, {scale(1, 1), scale(1, 1, nan)}, 1, 1); }), not_a_number);
  EXPECT_EQ(error([] { mblur_samples(1, {scale(1, 1), scale(1, 1, 1e19)}, 1, 1); }), too_large);
}

TEST(Transforms, CropsPlanPixelsTextureRectangleAndWindow) {
  struct Row {
    std::array<double, 4> crop;
    bool clip, reformat;
    CropPlan expected;
  };
  const Row rows[] = {
      {{10.5, 0, 10.5, 5},
       false,
       false,
       {{10.5, 0, 10.5, 5}, {10, 0, 11, 5}, {.5, 0, .5, 5}, {640, 480}, {10, 0, 11, 5}}},
      {{.5, .25, 100.5, 50.25},
       true,
       true,
       {{.5, .25, 100.5, 50.25}, {0, 0, 100, 50}, {.5, -.25, 100.5, 49.75}, {100, 50}, {0, 0, 100, 50}}},
      {{-9, -9, 9e3, 70.25},
       true,
       false,
       {{0, 0, 200, 70.25}, {0, 0, 200, 70}, {0, -.25, 200, 70}, {640, 480}, {0, 0, 200, 70}}},
      {{300, 20, 310, 30},
       true,
       true,
       {{300, 20, 300, 30}, {300, 20, 301, 30}, {0, 0, 0, 10}, {1, 10}, {0, 0, 1, 10}}},
      {{nan, 2, nan, 1},
       true,
       true,
       {{0, 2, 200, 2}, {0, 2, 200, 3}, {0, 1, 200, 1}, {200, 1}, {0, 0, 200, 1}}},
  };
  for (const auto& [c, clip, reformat, expected] : rows) {
    const CropPlan plan = crop_plan(c[0], c[1], c[2], c[3], clip, {0, 0, 200, 100}, reformat, 640, 480);
    EXPECT_EQ(std::tie(plan.box, plan.pixels, plan.local, plan.format, plan.window),
              std::tie(expected.box, expected.pixels, expected.local, expected.format, expected.window));
  }
}

TEST(Transforms, MotionBlurFollowsTheLongestWayOfACorner) {
  ASSERT_TRUE(install_routines());
  const auto at = [](double x) { return scale(1, 1, x); };
  const Matrix horizon{1, 0, 0, 0, 1, 0, 0, 0, 0};
  const std::pair<std::vector<std::optional<Matrix>>, std::int64_t> rows[] = {
      {{}, 0},
      {{std::nullopt, at(1)}, 0},
      {{at(5), at(5)}, 0},
      {{at(0), at(.00009)}, 0},
      {{at(0), at(-2), at(3)}, 8},
      {{at(0), std::nullopt, horizon, at(10)}, 11},
      {{at(0), at(1e9)}, 128},
      {{scale(1, 1), scale(2, 2)}, 51},  // the far corner of 30 x 40
  };
  for (const auto& [path, samples] : rows) {
    EXPECT_EQ(mblur_samples(1, path, 30, 40), samples);
  }
}

}  // namespace
