#include <qv/xform/steps.h>

#include "tests/xform/routines.h"

#include <algorithm>
#include <cmath>
#include <random>

#include <gtest/gtest.h>

namespace {

using namespace qv::xform;
using Step = std::vector<double>;

constexpr Matrix identity{1, 0, 0, 0, 1, 0, 0, 0, 1};

struct Point {
  double x, y;
};

Point mapped(const Matrix& m, Point p) {
  const double w = m[6] * p.x + m[7] * p.y + m[8];
  return {(m[0] * p.x + m[1] * p.y + m[2]) / w, (m[3] * p.x + m[4] * p.y + m[5]) / w};
}

void expect_near(Point a, Point b) {
  EXPECT_NEAR(a.x, b.x, 1e-8 * (1 + std::abs(b.x)));
  EXPECT_NEAR(a.y, b.y, 1e-8 * (1 + std::abs(b.y)));
}

class RandomTransforms : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(install_routines());
  }
  double uniform(double least, double most) {
    return std::uniform_real_distribution<double>(least, most)(random_);
  }
  double below(unsigned n) {
    return static_cast<double>(random_() % n);
  }
  // Of a transform and a reformat all numbers are drawn; a corner pin moves corners of 100 x 100 pixels.
  Step step(double kind, std::size_t points) {
    if (kind == 0) {
      return {0,
              uniform(-50, 50),
              uniform(-50, 50),
              uniform(-360, 360),
              uniform(.5, 2),
              uniform(.5, 2),
              uniform(-.5, .5),
              uniform(-.5, .5),
              below(2),
              uniform(0, 200),
              uniform(0, 200),
              below(2)};
    }
    if (kind == 1) {
      return {1,
              below(3),
              uniform(20, 300),
              uniform(20, 300),
              uniform(.5, 2),
              uniform(20, 300),
              uniform(20, 300),
              below(2),
              uniform(.5, 2),
              uniform(.5, 2),
              uniform(.5, 2),
              below(7),
              below(2),
              below(2),
              below(2),
              below(2),
              below(2)};
    }
    const double corners[] = {0, 0, 100, 0, 100, 100, 0, 100, 50, 50};
    Step pin{2, 0, static_cast<double>(points)};
    for (std::size_t i = 0; i < 4 * points; ++i) {
      pin.push_back(corners[i % (2 * points)] + uniform(-20, 20));
    }
    pin.insert(pin.end(), {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1});
    return pin;
  }
  std::mt19937 random_{77};
};

TEST_F(RandomTransforms, ChainsMapPointsLikeTheirStepsOneByOne) {
  for (int round = 0; round < 2000; ++round) {
    std::vector<Step> steps(random_() % 6);
    const Point start{uniform(0, 160), uniform(0, 90)};
    Point point = start;
    std::int64_t width = 160;
    std::int64_t height = 90;
    bool clipped = false;
    for (Step& each : steps) {
      each = step(below(3), random_() % 6);
      bool clip = true;
      const auto matrix = step_matrix(each, width, height, clip);
      ASSERT_TRUE(matrix);
      point = mapped(*matrix, point);
      clipped = clipped || clip;
    }
    const Total chain = total(steps, 160, 90);
    ASSERT_TRUE(chain.matrix);
    expect_near(mapped(*chain.matrix, start), point);
    EXPECT_EQ(std::pair(chain.width, chain.height), std::pair(width, height));
    const Box clip = chain.clip.value_or(Box{0, 0, 1, 1});
    EXPECT_TRUE((clipped || !chain.clip) && clip[0] < clip[2] && clip[1] < clip[3]);
  }
}

TEST_F(RandomTransforms, PinsMapTheirPointsAndInvertedStepsUndo) {
  for (int round = 0; round < 2000; ++round) {
    const std::size_t n = 1 + random_() % 5;
    Step pin = step(2, n);
    Step turn = step(0, 0);
    std::int64_t side = 1;
    bool clip = false;
    pin[1] = turn[11] = 0;
    const Matrix there = *step_matrix(pin, side, side, clip);
    const Matrix turned = *step_matrix(turn, side, side, clip);
    pin[1] = turn[11] = NAN;
    const Matrix back = *step_matrix(pin, side, side, clip);
    const Matrix returned = *step_matrix(turn, side, side, clip);
    for (std::size_t i = 3; i < 3 + 2 * std::min<std::size_t>(n, 4); i += 2) {
      expect_near(mapped(there, {pin[i], pin[i + 1]}), {pin[i + 2 * n], pin[i + 2 * n + 1]});
    }
    expect_near(mapped(turned, {turn[9], turn[10]}), {turn[9] + turn[1], turn[10] + turn[2]});
    const Point p{uniform(0, 100), uniform(0, 100)};
    expect_near(mapped(back, mapped(there, p)), p);
    expect_near(mapped(returned, mapped(turned, p)), p);
    const auto undo = inverse(product(there, turned));
    ASSERT_TRUE(undo);
    expect_near(mapped(*undo, mapped(there, mapped(turned, p))), p);
  }
}

TEST_F(RandomTransforms, BoxesHoldTheImageAndNoPixelMore) {
  for (int round = 0; round < 2000; ++round) {
    Matrix m = *total({step(0, 0)}, 1, 1).matrix;
    m[6] = uniform(-4e-4, 4e-4);
    m[7] = uniform(-4e-4, 4e-4);
    const auto x = static_cast<std::int64_t>(uniform(-900, 800));
    const auto y = static_cast<std::int64_t>(uniform(-900, 800));
    const Box image = h_bbox({x, y, x + 90, y + 50}, m, 0).value();
    Point least{1e9, 1e9};
    Point most{-1e9, -1e9};
    for (int i = 0; i < 64; ++i) {
      // The corners first, then points inside.
      const double right = i < 4 ? i % 2 * 90 : uniform(0, 90);
      const double up = i < 4 ? i / 2 * 50 : uniform(0, 50);
      const Point p = mapped(m, {static_cast<double>(x) + right, static_cast<double>(y) + up});
      least = {std::min(least.x, p.x), std::min(least.y, p.y)};
      most = {std::max(most.x, p.x), std::max(most.y, p.y)};
    }
    const auto covers = [](std::int64_t edge, double outward) {
      return static_cast<double>(edge) >= outward - 2e-6 && outward > static_cast<double>(edge) - 1;
    };
    EXPECT_TRUE(covers(-image[0], -least.x) && covers(-image[1], -least.y));
    EXPECT_TRUE(covers(image[2], most.x) && covers(image[3], most.y));
  }
}

}  // namespace
