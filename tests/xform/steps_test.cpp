#include <qv/xform/steps.h>

#include "tests/xform/routines.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using qv::xform::Box;
using qv::xform::Matrix;
using qv::xform::Total;
using Step = std::vector<double>;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();
constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();

struct Point {
  double x, y;
};

Point mapped(const Matrix& m, Point p) {
  const double w = m[6] * p.x + m[7] * p.y + m[8];
  return {(m[0] * p.x + m[1] * p.y + m[2]) / w, (m[3] * p.x + m[4] * p.y + m[5]) / w};
}

// What a step makes of its format, and its matrix.
struct Made {
  std::optional<Matrix> matrix;
  std::int64_t width, height;
  bool clip;
};

Made make(const Step& step, std::int64_t width, std::int64_t height) {
  Made made{{}, width, height, true};
  made.matrix = qv::xform::step_matrix(step, made.width, made.height, made.clip);
  return made;
}

Step reformat(double type, std::vector<double> sizes, double resize, std::vector<double> flags) {
  Step step{1, type};
  sizes.resize(9, 1);
  flags.resize(5);
  step.insert(step.end(), sizes.begin(), sizes.end());
  step.push_back(resize);
  step.insert(step.end(), flags.begin(), flags.end());
  return step;
}

class StepsTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(install_routines());
  }
  double uniform(double least, double most) {
    return std::uniform_real_distribution<double>(least, most)(random_);
  }
  double flag() {
    return static_cast<double>(random_() % 2);
  }
  Step transform() {
    return {0,
            uniform(-50, 50),
            uniform(-50, 50),
            uniform(-360, 360),
            uniform(.5, 2),
            uniform(.5, 2),
            uniform(-.5, .5),
            uniform(-.5, .5),
            flag(),
            uniform(0, 200),
            uniform(0, 200),
            flag()};
  }
  Step any_reformat() {
    return reformat(static_cast<double>(random_() % 3),
                    {uniform(20, 300), uniform(20, 300), uniform(.5, 2), uniform(20, 300), uniform(20, 300),
                     flag(), uniform(.5, 2), uniform(.5, 2), uniform(.5, 2)},
                    static_cast<double>(random_() % 7), {flag(), flag(), flag(), flag(), flag()});
  }
  // The corners of a 100 x 100 image, or as many of them, each moved by up to 20 pixels.
  Step corner_pin(std::size_t n) {
    const double corners[] = {0, 0, 100, 0, 100, 100, 0, 100, 50, 50};
    Step step{2, 0, static_cast<double>(n)};
    for (std::size_t i = 0; i < 4 * n; ++i) {
      step.push_back(corners[i % (2 * n)] + uniform(-20, 20));
    }
    const double after[] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    step.insert(step.end(), std::begin(after), std::end(after));
    return step;
  }
  Step any() {
    const auto kind = random_() % 3;
    return kind == 0 ? transform() : kind == 1 ? any_reformat() : corner_pin(random_() % 6);
  }
  std::mt19937 random_{77};
};

TEST_F(StepsTest, ChainsMapPointsLikeTheirStepsOneByOne) {
  for (int round = 0; round < 2000; ++round) {
    std::vector<Step> steps(random_() % 6);
    for (Step& step : steps) {
      step = any();
    }
    const Total chain = qv::xform::total(steps, 160, 90);
    const Point start{uniform(0, 160), uniform(0, 90)};
    Point point = start;
    Made last{{}, 160, 90, false};
    bool clipped = false;
    for (const Step& step : steps) {
      last = make(step, last.width, last.height);
      point = mapped(*last.matrix, point);
      clipped = clipped || last.clip;
    }
    ASSERT_TRUE(chain.matrix);
    const Point at_once = mapped(*chain.matrix, start);
    EXPECT_NEAR(at_once.x, point.x, 1e-7 * (1 + std::abs(point.x)));
    EXPECT_NEAR(at_once.y, point.y, 1e-7 * (1 + std::abs(point.y)));
    EXPECT_EQ(chain.width, last.width);
    EXPECT_EQ(chain.height, last.height);
    EXPECT_TRUE(clipped || !chain.clip);
    EXPECT_TRUE(!chain.clip || ((*chain.clip)[0] < (*chain.clip)[2] && (*chain.clip)[1] < (*chain.clip)[3]));
  }
}

TEST_F(StepsTest, CornerPinsMapTheirPoints) {
  for (int round = 0; round < 1000; ++round) {
    const std::size_t n = 1 + random_() % 5;
    Step step = corner_pin(n);
    const auto pin = make(step, 1, 1).matrix;
    step[1] = nan;
    const auto unpin = make(step, 1, 1).matrix;
    ASSERT_TRUE(pin && unpin);
    for (std::size_t i = 0; i < std::min<std::size_t>(n, 4); ++i) {
      const Point from{step[3 + 2 * i], step[4 + 2 * i]};
      const Point to{step[3 + 2 * n + 2 * i], step[4 + 2 * n + 2 * i]};
      EXPECT_NEAR(mapped(*pin, from).x, to.x, 1e-8);
      EXPECT_NEAR(mapped(*pin, from).y, to.y, 1e-8);
      EXPECT_NEAR(mapped(*unpin, to).x, from.x, 1e-8);
    }
  }
  Step trailing{2, 0, 0};
  for (int i = 0; i < 16; ++i) {
    trailing.push_back(i);
  }
  EXPECT_EQ(make(trailing, 1, 1).matrix, (Matrix{0, 1, 3, 4, 5, 7, 12, 13, 15}));
  trailing = Step(19, 0);
  trailing[0] = 2;
  trailing[1] = 1;
  EXPECT_FALSE(make(trailing, 1, 1).matrix);
  for (const std::size_t n : {2, 3, 4}) {
    Step pin = corner_pin(n);
    for (const std::size_t points : {std::size_t{3}, 3 + 2 * n}) {
      std::copy_n(&pin[points], 2, &pin[points + 2]);
    }
    EXPECT_FALSE(make(pin, 1, 1).matrix) << n << " points, two of them coincident";
    EXPECT_FALSE(qv::xform::total({transform(), pin, any()}, 9, 9).matrix);
  }
}

TEST_F(StepsTest, TransformsTurnAboutTheirCentreAndInvert) {
  for (int round = 0; round < 1000; ++round) {
    Step step = transform();
    step[11] = 0;
    const Matrix there = *make(step, 1, 1).matrix;
    step[11] = 1;
    const Matrix back = *make(step, 1, 1).matrix;
    const Point moved = mapped(there, {step[9], step[10]});
    EXPECT_NEAR(moved.x, step[9] + step[1], 1e-10);
    EXPECT_NEAR(moved.y, step[10] + step[2], 1e-10);
    const Point returned = mapped(back, mapped(there, {3, 4}));
    EXPECT_NEAR(returned.x, 3, 1e-9);
    EXPECT_NEAR(returned.y, 4, 1e-9);
  }
  EXPECT_EQ(make({0, 7, 8, 0, 1, 1, 0, 0, 0, 3, 4, 0}, 1, 1).matrix, (Matrix{1, 0, 7, 0, 1, 8, 0, 0, 1}));
  EXPECT_EQ(make({0, 0, 0, 0, 2, 3, .5, .25, 0, 0, 0, 0}, 1, 1).matrix,
            (Matrix{2, 1, 0, .75, 3.375, 0, 0, 0, 1}));
  EXPECT_EQ(make({0, 0, 0, 0, 2, 3, .5, .25, 1, 0, 0, 0}, 1, 1).matrix,
            (Matrix{2.25, 1, 0, .75, 3, 0, 0, 0, 1}));
  EXPECT_FALSE(make({0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 1}, 1, 1).matrix);
}

TEST(ReformatSteps, SizeScaleTurnAndMirror) {
  // No routines: reformats must not ask for them.
  qv::xform::set_blas(0, 0, 0, 0);
  struct Row {
    std::string name;
    Step step;
    std::int64_t width, height;  // of a 200 x 100 image
    Matrix matrix;
  };
  const auto scaled = [](double x, double y, double ox = 0, double oy = 0) {
    return Matrix{x, 0, ox, 0, y, oy, 0, 0, 1};
  };
  const Row rows[] = {
      {"format, width", reformat(0, {400.9, 300, 2}, 1, {}), 400, 300, scaled(2, 4)},
      {"format, height, centred", reformat(7, {400, 300, 2}, 2, {1}), 400, 300, scaled(1.5, 3, 50, 0)},
      {"fit is the width here", reformat(0, {400, 300, 1}, 3, {}), 400, 300, scaled(2, 2)},
      {"fill is the height here", reformat(0, {400, 300, 1}, 4, {nan}), 400, 300, scaled(3, 3, -100, 0)},
      {"fit is the height of a low format", reformat(0, {400, 100, 1}, 3, {}), 400, 100, scaled(1, 1)},
      {"fill is the width of a low format", reformat(0, {400, 100, 1}, 4, {}), 400, 100, scaled(2, 2)},
      {"distort", reformat(0, {100, 300, 9}, 5.9, {}), 100, 300, scaled(.5, 3)},
      {"none, centred", reformat(0, {100, 300}, nan, {1}), 100, 300, scaled(1, 1, -50, 100)},
      {"an empty format stays", reformat(0, {0, 0}, 0, {}), 0, 0, scaled(1, 1)},
      {"sizes saturate", reformat(0, {1e30, -inf}, 0, {}), highest, -highest - 1, scaled(1, 1)},
      {"box, height by aspect", reformat(1, {0, 0, 0, 50.5, 7, 0, 2}, 1, {}), 50, 12, scaled(.25, .5)},
      {"box, height given", reformat(1, {0, 0, 0, 50, -7, nan, 2}, 0, {}), 50, 1, scaled(1, 1)},
      {"scale, half to even", reformat(2, {0, 0, 0, 0, 0, 0, 0, .0125, .001}, 0, {}), 2, 1, scaled(1, 1)},
      {"turn", reformat(0, {100, 200}, 5, {0, 0, 0, 1}), 100, 200, {0, -1, 100, 1, 0, 0, 0, 0, 1}},
      {"mirrors", reformat(0, {200, 100}, 0, {0, nan, 1}), 200, 100, {-1, 0, 200, 0, -1, 100, 0, 0, 1}},
      {"turn, then mirror", reformat(0, {100, 200}, 0, {0, 0, 1, 1}), 100, 200, {0, 1, 0, 1, 0, 0, 0, 0, 1}},
  };
  for (const Row& row : rows) {
    const Made made = make(row.step, 200, 100);
    EXPECT_EQ(made.matrix, row.matrix) << row.name;
    EXPECT_EQ(made.width, row.width) << row.name;
    EXPECT_EQ(made.height, row.height) << row.name;
    EXPECT_TRUE(made.clip);
  }
  Step kept = rows[0].step;
  kept[16] = nan;
  EXPECT_FALSE(make(kept, 200, 100).clip);
  // 2^63 - 1 times itself is not a 64-bit number, but its quotient is.
  EXPECT_EQ(make(reformat(1, {0, 0, 0, 1e30, 0, 0, 4}, 0, {}), highest, highest).height,
            std::int64_t{1} << 61);
}

TEST_F(StepsTest, ClipsMoveWithTheImageAndMeet) {
  const Step move{0, 150, -20, 0, 1, 1, 0, 0, 0, 0, 0, 0};
  const Step format = reformat(0, {100, 80}, 0, {});
  const Step empty = reformat(0, {0, 0}, 0, {});
  Step horizon{2, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, -.01, 0, 0, 1};
  struct Row {
    std::vector<Step> steps;
    std::optional<Box> clip;
  };
  const Row rows[] = {
      {{move}, {}},
      {{format}, Box{0, 0, 100, 80}},
      {{format, move}, Box{150, -20, 250, 60}},
      {{format, move, format}, Box{150, 0, 151, 1}},
      {{move, format, reformat(0, {50, 200}, 0, {})}, Box{0, 0, 50, 80}},
      {{format, horizon}, {}},
      {{format, horizon, format}, Box{0, 0, 100, 80}},
      {{empty}, Box{0, 0, 0, 0}},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(qv::xform::total(row.steps, 9, 9).clip, row.clip) << row.steps.size();
  }
}

TEST(StepErrors, NameWhatIsWrong) {
  const auto error = [](const Step& step) -> std::string {
    try {
      make(step, 200, 100);
    } catch (const std::invalid_argument& e) {
      return e.what();
    } catch (const std::overflow_error& e) {
      return e.what();
    } catch (const std::out_of_range& e) {
      return e.what();
    }
    return "none";
  };
  const std::string pin = "cornerpin step: 3 + 4 n + 16 values";
  const auto pin_of = [](double n, std::size_t length) {
    Step step(length, 0);
    step[0] = 2;
    step.resize(std::max<std::size_t>(length, 3));
    step[2] = n;
    step.resize(length);
    return step;
  };
  const std::pair<Step, std::string> rows[] = {
      {{}, "invalid vector subscript"},
      {{0, 1}, "transform step: 12 values"},
      {{-0.9}, "transform step: 12 values"},
      {Step(16, 1), "reformat step: 17 values"},
      {{2, 0}, pin},
      {pin_of(0, 20), pin},
      {pin_of(-1, 15), pin},
      {pin_of(1e300, 19), pin},
      {{3}, "unknown step kind"},
      {{nan}, "unknown step kind"},
      {{0x1p31}, "unknown step kind"},
      {{-inf}, "unknown step kind"},
      {reformat(nan, {}, 0, {}), "unknown step kind"},
      {reformat(2, {0, 0, 0, 0, 0, 0, 0, nan, 1}, 0, {}), "cannot convert float NaN to integer"},
      {reformat(2, {0, 0, 0, 0, 0, 0, 0, 1, 9.2e16}, 0, {}), "cannot convert float infinity to integer"},
      {reformat(1, {0, 0, 0, 9, 0, 0, 0}, 0, {}), "cannot convert float infinity to integer"},
  };
  for (const auto& [step, message] : rows) {
    EXPECT_EQ(error(step), message) << step.size();
  }
}

}  // namespace
