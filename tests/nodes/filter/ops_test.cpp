#include <qv/nodes/filter/ops.h>

#include "tests/nodes/filter/programs.h"
#include "tests/support/fake_egl/fake_egl.h"

#include <array>
#include <cmath>
#include <limits>
#include <set>
#include <span>

#include <gtest/gtest.h>

namespace {

using namespace qv::nodes::filter;
using Lines = std::vector<std::string>;

constexpr double inf = std::numeric_limits<double>::infinity();
const double nan = std::nan("");

// What there is to draw, told without a driver; the pixels are judged on a real one.
TEST(Ops, SayWhatTheyHaveDrawn) {
  const struct {
    const char* op;
    std::vector<double> params;
    int result;
    uint64_t draws = 0;
    size_t inputs = 1;
  } cases[] = {
      {"blur", {5, 3, 1, 0, 0, 0, 64, 48}, run_drawn, 2},
      {"blur", {0, 100.5, 0, 25, 9, 9, 9, 9}, run_drawn, 3},  // through a coarse image of an empty box
      {"blur", {1, -7, 0, 0, 0, 0, 64, 48}, run_nothing},
      {"blur", {nan, nan, nan, nan, nan, nan, nan, nan}, run_nothing},
      {"sharpen", {0, 1, 0, 0, 0, 0, 64, 48, 2, -1, 1}, run_nothing},
      {"erode", {-2, 3, 0, 0, 0, 64, 48}, run_drawn, 5},
      {"erode", {0, 0, 0, 0, 0, 64, 48}, run_nothing},
      {"dilate", {-inf}, run_drawn, 2},
      {"disc", {4, 0.1, 0}, run_drawn, 2},
      {"disc", {4, 2, 0}, run_drawn, 1, 2},
      {"disc", {0.49, -4, 0}, run_nothing},
      {"disc", {nan, nan, 0}, run_nothing},
      {"Blur", {5, 3, 1, 0, 0, 0, 64, 48}, run_bad},
      {"", {}, run_bad},
  };
  programs::start();
  for (const auto& c : cases) {
    const uint64_t draws = stats().draws;
    EXPECT_EQ(run_op(c.op, std::span(programs::inputs).first(c.inputs), c.params, programs::target(), 0),
              c.result)
        << c.op << " " << ::testing::PrintToString(c.params);
    EXPECT_EQ(stats().draws - draws, c.draws) << c.op << " " << ::testing::PrintToString(c.params);
  }
}

TEST(Ops, RadiiFactorsAndFiles) {
  struct Row {
    double size;
    int number;
    int expected;
  };
  const Row radii[] = {{3, 0, 1},  {3.1, 0, 2},     {1, 0, 0},         {3, 1, 2},      {3, 2, 4},
                       {3, 9, 4},  {2.0 / 3, 3, 1}, {10000, 2, 4096},  {inf, 0, 4096}, {0, 1, 0},
                       {-5, 2, 0}, {nan, 0, 0},     {1 + 1e-12, 1, 0}, {1.1, 1, 1},    {0.2, 1, 0}};
  for (const Row& row : radii) EXPECT_EQ(radius(row.size, row.number), row.expected) << row.size;
  const Row factors[] = {
      {100, 25, 4}, {100.5, 25, 5}, {20, 25, 1},  {25, 25, 1},
      {100, 0, 1},  {100, -3, 1},   {nan, 25, 1}, {inf, 25, std::numeric_limits<int>::max()}};
  for (const Row& row : factors) EXPECT_EQ(factor(row.size, row.number), row.expected) << row.size;
  // S is the integral of the triangle of half width w = 2 a: S(1.5; 4) = 1 - 2.5^2 / 32, S(2.5; 4) =
  // 1 - 1.5^2 / 32; S(-0.25; 0.5) = 1/8, S(0.75; 0.5) = 1.
  const std::array<double, 3> ramps[] = {{0, 1, 0}, {-2, 8, -6.4375}, {0.25, 8.0 / 7, -1.0 / 7}};
  for (const auto& [amount, scale, offset] : ramps) {
    std::array<double, 2> got{};
    erode_ramp(amount, &got[0], &got[1]);
    EXPECT_TRUE(got[0] == scale && got[1] == offset) << amount << ": " << got[0] << ", " << got[1];
  }
  EXPECT_EQ(op_frags("glow"), (Lines{"blur_v.frag", "blur_h.frag", "blur_downrez.frag", "blur_uprez.frag",
                                     "glow_prep.frag", "glow_add.frag"}));
  EXPECT_EQ(op_frags("glow "), Lines{});
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
