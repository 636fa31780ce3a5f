#include <qv/nodes/filter/ops.h>

#include "tests/nodes/filter/programs.h"
#include "tests/support/fake_egl/fake_egl.h"

#include <array>
#include <cmath>
#include <limits>
#include <set>
#include <span>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace qv::nodes::filter;

constexpr double inf = std::numeric_limits<double>::infinity();
const double nan = std::nan("");

// What there is to draw, told without a driver; the pixels are judged on a real one.
TEST(Ops, SayWhatTheyHaveDrawn) {
  const std::tuple<const char*, size_t, std::vector<double>, int, uint64_t> cases[] = {
      {"blur", 1, {5, 3, 1, 0, 0, 0, 64, 48}, run_drawn, 2},
      {"blur", 1, {0, 100.5, 0, 25, 9, 9, 9, 9}, run_drawn, 3},  // through a coarse image of an empty box
      {"blur", 1, {1, -7, 0, 0, 0, 0, 64, 48}, run_nothing, 0},
      {"blur", 1, {nan, nan, nan, nan, nan, nan, nan, nan}, run_nothing, 0},
      {"sharpen", 1, {0, 1, 0, 0, 0, 0, 64, 48, 2, -1, 1}, run_nothing, 0},
      {"erode", 1, {-2, 3, 0, 0, 0, 64, 48}, run_drawn, 5},
      {"erode", 1, {0, 0, 0, 0, 0, 64, 48}, run_nothing, 0},
      {"dilate", 1, {-inf}, run_drawn, 2},
      {"disc", 1, {4, 0.1, 0}, run_drawn, 2},
      {"disc", 2, {4, 2, 0}, run_drawn, 1},
      {"disc", 1, {0.49, -4, 0}, run_nothing, 0},
      {"disc", 1, {nan, nan, 0}, run_nothing, 0},
      {"Blur", 1, {5, 3, 1, 0, 0, 0, 64, 48}, run_bad, 0},
      {"blur", 1, {100, 100, 1, 2, 0, 0, 1e30, 3}, run_bad, 0},
      {"", 1, {}, run_bad, 0},
  };
  programs::start();
  for (const auto& [op, inputs, params, result, draws] : cases) {
    const uint64_t before = stats().draws;
    EXPECT_EQ(run_op(op, std::span(programs::inputs).first(inputs), params, programs::target(), 0), result)
        << op << testing::PrintToString(params);
    EXPECT_EQ(stats().draws - before, draws) << op << testing::PrintToString(params);
  }
}

// What pictures cannot show.
TEST(Ops, RadiiAndFactorsAtTheirLimits) {
  EXPECT_EQ((std::array{radius(10000, 2), radius(inf, 0), radius(-5, 2), radius(nan, 0), radius(3, 9)}),
            (std::array{4096, 4096, 0, 0, 4}));
  EXPECT_EQ((std::array{factor(100.5, 25), factor(25, 25), factor(100, 0), factor(nan, 25), factor(inf, 25)}),
            (std::array{5, 1, 1, 1, std::numeric_limits<int>::max()}));
}

// The table as data: whoever hands over one value a name is understood, and one less is too few.
TEST(Ops, TakeWhatTheirTableNames) {
  programs::start();
  EXPECT_EQ(operations().size(), 8U);
  for (const Operation& op : operations()) {
    std::vector<double> params;
    for (const std::string_view name : op.params)
      params.push_back(name == "x1" ? 64 : name == "y1" ? 48 : name == "limit" ? 0 : 2);
    const std::span<const Tex> all(programs::inputs);
    const std::span<const double> values(params);
    EXPECT_EQ(run_op(op.name, all.first(op.inputs), values, programs::target(), 0), run_drawn) << op.name;
    EXPECT_EQ(run_op(op.name, all.first(op.inputs - 1), values, programs::target(), 0), run_bad) << op.name;
    EXPECT_EQ(run_op(op.name, all, values.first(values.size() - 1), programs::target(), 0), run_bad);
    EXPECT_EQ(std::set(op.params.begin(), op.params.end()).size(), op.params.size()) << op.name;
    EXPECT_FALSE(op_frags(op.name).empty()) << op.name;
  }
}

}  // namespace
