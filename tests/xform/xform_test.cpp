#include <qv/xform/crop.h>
#include <qv/xform/motion_blur.h>
#include <qv/xform/steps.h>

#include "tests/support/error.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <random>
#include <tuple>
#include <utility>

#include <gtest/gtest.h>

extern "C" {
void dgesv_();
void cblas_dgemm();
void cblas_dgemv();
void dgetrf_();
}

namespace {

using namespace qv::xform;
using support::error_of;
using Step = std::vector<double>;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();
constexpr int64_t highest = std::numeric_limits<int64_t>::max();

bool install_routines() {
  const auto address = [](auto* routine) {
    return static_cast<uint64_t>(reinterpret_cast<uintptr_t>(routine));
  };
  return set_blas(address(dgesv_), address(cblas_dgemm), address(cblas_dgemv), address(dgetrf_)) &&
         has_blas();
}

std::mt19937_64 bits(77);

double uniform(double least, double most) {
  return std::uniform_real_distribution<double>(least, most)(bits);
}

double below(unsigned n) {
  return static_cast<double>(bits() % n);
}

struct Point {
  double x, y;
};

Point mapped(const Matrix& m, Point p) {
  const double w = m[6] * p.x + m[7] * p.y + m[8];
  return {(m[0] * p.x + m[1] * p.y + m[2]) / w, (m[3] * p.x + m[4] * p.y + m[5]) / w};
}

void expect_near(Point a, Point b) {
  EXPECT_NEAR(a.x, b.x, 1e-7 * (1 + std::abs(b.x)));
  EXPECT_NEAR(a.y, b.y, 1e-7 * (1 + std::abs(b.y)));
}

// A pin of `n` corners of 100 x 100 pixels, each moved a little, or another step of any numbers in the ranges
// of its kind: a transform, or a reformat.
Step random_step(double kind, size_t n) {
  // Of each value the least and the most; of a whole one how many there are, and 0.
  static const Step ranges[] = {
      {-50, 50, -50, 50, -360, 360, .5, 2, .5, 2, -.5, .5, -.5, .5, 2, 0, 0, 200, 0, 200, 2, 0},
      {3,  0, 20, 300, 20, 300, .5, 2, 20, 300, 20, 300, 2, 0, .5, 2,
       .5, 2, .5, 2,   7,  0,   2,  0, 2,  0,   2,  0,   2, 0, 2,  0}};
  Step step{kind};
  if (kind < 2) {
    const Step& range = ranges[kind > 0];
    for (size_t i = 0; i < range.size(); i += 2)
      step.push_back(range[i + 1] == 0 ? below(static_cast<unsigned>(range[i]))
                                       : uniform(range[i], range[i + 1]));
    return step;
  }
  const double corners[] = {0, 0, 100, 0, 100, 100, 0, 100};
  const size_t turn = bits() % 4 * 2;
  step.insert(step.end(), {0, static_cast<double>(n)});
  for (size_t i = 0; i < 4 * n; ++i) step.push_back(corners[(i % (2 * n) + turn) % 8] + uniform(-9, 9));
  step.insert(step.end(), {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
  return step;
}

TEST(Xform, ChainsMapPointsAndBoxesLikeTheirSteps) {
  ASSERT_TRUE(install_routines());
  for (int round = 0; round < 3000; ++round) {
    std::vector<Step> steps(bits() % 4);
    const Point start{uniform(0, 160), uniform(0, 90)};
    Point point = start;
    int64_t width = 160, height = 90;
    bool clipped = false;
    for (Step& step : steps) {
      const size_t n = bits() % 6;
      step = random_step(below(3), n);
      bool clip = true;
      const Matrix m = step_matrix(step, width, height, clip).value();
      point = mapped(m, point);
      clipped = clipped || clip;
      for (size_t i = 3; step[0] == 2 && i < 3 + 2 * std::min<size_t>(n, 4); i += 2)
        expect_near(mapped(m, {step[i], step[i + 1]}), {step[i + 2 * n], step[i + 2 * n + 1]});
      Step undo = step;
      double& inverted = undo[step[0] == 0 ? 11 : 1];
      inverted = inverted == 0 ? nan : 0;
      expect_near(step[0] == 1 ? start : mapped(total({step, undo}, 1, 1).matrix.value(), start), start);
    }
    const Total chain = total(steps, 160, 90);
    const Matrix m = chain.matrix.value();
    expect_near(mapped(m, start), point);
    expect_near(mapped(product(inverse(m).value(), m), start), start);
    EXPECT_EQ(std::pair(chain.width, chain.height), std::pair(width, height));
    const Box clip = chain.clip.value_or(Box{0, 0, 1, 1});
    EXPECT_TRUE((clipped || !chain.clip) && clip[0] < clip[2] && clip[1] < clip[3]);

    const std::optional<Box> image = h_bbox({0, 0, 160, 90}, m, 0);
    Point least = mapped(m, {0, 0}), most = least;
    for (const Point corner : {Point{160, 0}, Point{0, 90}, Point{160, 90}}) {
      const Point p = mapped(m, corner);
      least = {std::min(least.x, p.x), std::min(least.y, p.y)};
      most = {std::max(most.x, p.x), std::max(most.y, p.y)};
    }
    const auto pixel = [](double x) { return static_cast<int64_t>(x); };
    const Box hull = {pixel(std::floor(least.x + 1e-6)), pixel(std::floor(least.y + 1e-6)),
                      pixel(std::ceil(most.x - 1e-6)), pixel(std::ceil(most.y - 1e-6))};
    EXPECT_EQ(image.value_or(hull), hull);
  }
}

Matrix scale(double x, double y, double to_x = 0, double to_y = 0) {
  return {x, 0, to_x, 0, y, to_y, 0, 0, 1};
}

Step reformat(double type, std::vector<double> sizes, double resize, std::vector<double> flags = {}) {
  sizes.resize(9, 1);
  flags.resize(5);
  sizes.insert(sizes.begin(), {1, type});
  sizes.push_back(resize);
  sizes.insert(sizes.end(), flags.begin(), flags.end());
  return sizes;
}

TEST(Xform, StepsByThemselvesNeedNoRoutines) {
  EXPECT_FALSE(set_blas(1, 1, 1, 0) || has_blas() || set_blas(0, 0, 0, 0) || has_blas());
  // The step, the width and height of what it makes of 200 x 100 pixels, its matrix.
  const std::tuple<Step, int64_t, int64_t, std::optional<Matrix>> rows[] = {
      {{0, 0, 0, 0, 2, 3, .5, .25, 0, 0, 0, 0}, 200, 100, Matrix{2, 1, 0, .75, 3.375, 0, 0, 0, 1}},
      {{0, 0, 0, 0, 2, 3, .5, .25, 1, 0, 0, 0}, 200, 100, Matrix{2.25, 1, 0, .75, 3, 0, 0, 0, 1}},
      {{0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 1}, 200, 100, std::nullopt},
      {reformat(0, {400.9, 300, 2}, 1), 400, 300, scale(2, 4)},
      {reformat(7, {400, 300, 2}, 2, {1}), 400, 300, scale(1.5, 3, 50)},
      {reformat(0, {400, 300}, 4, {nan}), 400, 300, scale(3, 3, -100)},  // fill: the height
      {reformat(0, {400, 100}, 3), 400, 100, scale(1, 1)},               // fit: the height
      {reformat(0, {400, 100}, 4), 400, 100, scale(2, 2)},               // fill: the width
      {reformat(0, {100, 300, 9}, 5.9), 100, 300, scale(.5, 3)},
      {reformat(0, {1e30, -inf}, nan), highest, -highest - 1, scale(1, 1)},
      {reformat(1, {0, 0, 0, 50.5, 7, 0, 2}, 1), 50, 12, scale(.25, .5)},  // 12.5 to even
      {reformat(1, {0, 0, 0, 50, -7, nan, 2}, 0, {1}), 50, 1, scale(1, 1, -75, -49.5)},
      {reformat(2, {0, 0, 0, 0, 0, 0, 0, .0125, .001}, 0), 2, 1, scale(1, 1)},
      {reformat(0, {100, 200}, 0, {0, nan, 1, 1}), 100, 200, Matrix{0, 1, 0, -1, 0, 200, 0, 0, 1}},
  };
  for (const auto& [step, width, height, matrix] : rows) {
    int64_t w = 200, h = 100;
    bool clip = step[0] == 0;
    EXPECT_EQ(step_matrix(step, w, h, clip), matrix);
    EXPECT_EQ(std::pair(w, h), std::pair(width, height));
    EXPECT_EQ(clip, step[0] == 1);
  }
  // The width squared is no 64-bit number, but what the height comes to is.
  int64_t side = highest;
  bool clip = true;
  step_matrix(reformat(1, {0, 0, 0, 1e30, 0, 0, 4}, 0, {0, 0, 0, 0, nan}), side, side, clip);
  EXPECT_EQ(std::pair(side, clip), std::pair(int64_t{1} << 61, false));
}

TEST(Xform, ClipsMoveWithTheImageAndMeet) {
  ASSERT_TRUE(install_routines());
  const Step move{0, 150, -20, 0, 1, 1, 0, 0, 0, 0, 0, 0};
  const Step format = reformat(0, {100, 80}, 0);
  const Step horizon{2, 0, 0, 1, 0, 9, 0, 0, 1, 9, 0, 9, 9, 9, 9, -.01, 0, 9, 1};  // 9: not looked at
  const std::pair<std::vector<Step>, std::optional<Box>> rows[] = {
      {{format, move}, Box{150, -20, 250, 60}},
      {{format, move, format}, Box{150, 0, 151, 1}},
      {{format, {0, -150, -20, 0, 1, 1, 0, 0, 0, 0, 0, 0}, format}, Box{-51, 0, -50, 1}},
      {{move, format, reformat(0, {50, 200}, 0)}, Box{0, 0, 50, 80}},
      {{format, horizon}, {}},
      {{format, horizon, format}, Box{0, 0, 100, 80}},
      {{reformat(0, {0, -5}, 0)}, Box{0, 0, 0, -5}},
  };
  for (const auto& [steps, clip] : rows) EXPECT_EQ(total(steps, 9, 9).clip, clip);
  for (const double points : {2., 3., 4.}) {
    Step coincident(static_cast<size_t>(19 + 4 * points), 5.0);
    coincident[0] = 2;
    coincident[2] = points;
    EXPECT_FALSE(total({coincident, {}}, 9, 9).matrix);
  }
}

TEST(Xform, ErrorsNameWhatIsWrong) {
  ASSERT_TRUE(install_routines());
  const std::string pin = "cornerpin step: 3 + 4 n + 16 values";
  const std::string unknown = "unknown step kind";
  const std::string not_a_number = "cannot convert float NaN to integer";
  const std::string too_large = "cannot convert float infinity to integer";
  const std::pair<Step, std::string> rows[] = {
      {{}, "invalid vector subscript"},
      {{-0.9}, "transform step: 12 values"},
      {Step(16, 1), "reformat step: 17 values"},
      {{2, 0}, pin},
      {Step(20, 2), pin},
      {{2, 0, -3, 0, 0, 0, 0}, pin},
      {{2, 0, 1e300}, pin},
      {{3}, unknown},
      {{nan}, unknown},
      {{0x1p31}, unknown},
      {reformat(nan, {}, 0), unknown},
      {reformat(2, {0, 0, 0, 0, 0, 0, 0, nan, 1}, 0), not_a_number},
      {reformat(2, {0, 0, 0, 0, 0, 0, 0, 1, 9.2e18}, 0), too_large},
      {reformat(1, {0, 0, 0, 9, 0, 0, 0}, 0), too_large},
  };
  for (const auto& [step, message] : rows) EXPECT_EQ(error_of([s = step] { total({s}, 200, 1); }), message);
  const Box box{1, 1, 0, 1};
  for (const double hair : {-5e-7, 5e-7})
    EXPECT_EQ(h_bbox({0, 0, 9, 9}, scale(1, 1, hair, hair), 1), (Box{-1, -1, 10, 10}));
  EXPECT_EQ(error_of([&] { h_bbox(box, scale(1, 1), -highest - 1); }), too_large);
  EXPECT_EQ(error_of([&] { h_bbox(box, scale(inf, 1), 0); }),
            not_a_number);  // by its second corner: 0 times infinity
  EXPECT_EQ(error_of([] { crop_plan(nan, 0, 1, 1, false, {}, false, 1, 1); }), not_a_number);
  EXPECT_EQ(error_of([] { crop_plan(-9e18, 0, 9e18, 1, false, {}, true, 1, 1); }),
            too_large);  // the distance
  EXPECT_EQ(error_of([] { mblur_samples(nan, {scale(1, 1), scale(2, 2)}, 1, 1); }), not_a_number);
  EXPECT_EQ(error_of([] { mblur_samples(1, {scale(1, 1), scale(1, 1, nan)}, 1, 1); }), not_a_number);
  EXPECT_EQ(error_of([] { mblur_samples(1, {scale(1, 1), scale(1, 1, 1e19)}, 1, 1); }), too_large);
}

TEST(Xform, CropsPlanPixelsTextureRectangleAndWindow) {
  // The box; whether it clips and reformats; its plan.
  const std::tuple<std::array<double, 4>, bool, CropPlan> rows[] = {
      {{2, 3, nan, nan}, false, {{2, 3, 2, 3}, {2, 3, 3, 4}, {0, 1, 0, 1}, {64, 48}, {2, 3, 3, 4}}},
      {{2.5, .25, 99, 50.25},
       true,
       {{2.5, .25, 99, 50.25}, {2, 0, 99, 50}, {.5, -.25, 97, 49.75}, {96, 50}, {0, 0, 97, 50}}},
      {{300, nan, 310, 30},
       true,
       {{300, 0, 300, 30}, {300, 0, 301, 30}, {0, 0, 0, 30}, {1, 30}, {0, 0, 1, 30}}},
  };
  for (const auto& [c, both, plan] : rows) {
    const CropPlan got = crop_plan(c[0], c[1], c[2], c[3], both, {0, 0, 200, 100}, both, 64, 48);
    EXPECT_EQ(std::tie(got.box, got.pixels, got.local, got.format, got.window),
              std::tie(plan.box, plan.pixels, plan.local, plan.format, plan.window));
  }
}

TEST(Xform, MotionBlurFollowsTheLongestWayOfACorner) {
  ASSERT_TRUE(install_routines());
  const auto at = [](double x) { return scale(1, 1, x); };
  const Matrix horizon{1, 0, 0, 0, 1, 0, 0, 0, 0};
  const std::pair<std::vector<std::optional<Matrix>>, int64_t> rows[] = {
      {{}, 0},
      {{std::nullopt, at(1)}, 0},
      {{at(0), at(.00009)}, 0},
      {{at(0), at(-2), at(3)}, 8},
      {{at(0), std::nullopt, horizon, at(10)}, 11},
      {{at(0), at(1e9)}, 128},
      {{scale(1, 1), scale(2, 2)}, 51},
  };
  for (const auto& [path, samples] : rows)
    EXPECT_EQ(mblur_samples(1, path, 30, 40), samples);  // 50 pixels to the far corner
}

}  // namespace
