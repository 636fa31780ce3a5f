#include <qv/nodes/filter/ops.h>

#include "tests/nodes/filter/programs.h"
#include "tests/support/fake_egl/fake_egl.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

namespace {

using namespace qv::nodes::filter;
using Lines = std::vector<std::string>;

constexpr double inf = std::numeric_limits<double>::infinity();
const double nan = std::nan("");

struct Case {
  const char* op;
  std::vector<double> params;
  size_t inputs;
  int result;
  Lines passes;
};

// A program drawn twice shows the second time only the values that differ: it has the others still.
const std::vector<Case> cases{
    {"blur",
     {5, 3, 1, 0, 0, 0, 64, 48},
     1,
     1,
     {"p0 blur_v 64x48 size=3 radius=2 filter=1 image=in1",
      "out blur_h 64x48 size=5 radius=4 filter=1 image=p0"}},
    {"blur", {5, 1, 0.9, 0, 0, 0, 64, 48}, 1, 1, {"out blur_h 64x48 size=5 radius=2 filter=0 image=in1"}},
    {"blur", {1, -7, 0, 0, 0, 0, 64, 48}, 1, 0, {}},
    {"blur", {nan, nan, nan, nan, nan, nan, nan, nan}, 1, 0, {}},
    // Four times too large for the limit: cells of 4 x 4, those that the box touches.
    {"blur",
     {100, 100, 2, 25, -6, 1, 58, 49},
     1,
     1,
     {"p0 blur_downrez 17x13 factor=4,4 bbox=-6,1,58,49 cell=-2,0 image=in1",
      "p1 blur_v 17x13 size=25 radius=37 filter=2 image=p0",
      "p2 blur_h 17x13 size=25 radius=37 filter=2 image=p1",
      "out blur_uprez 64x48 factor=4,4 bbox=-6,1,58,49 cell=-2,0 image=p2"}},
    // One axis alone is too large; the box is empty.
    {"blur",
     {0, 100.5, 0, 25, 9, 9, 9, 9},
     1,
     1,
     {"p0 blur_downrez 1x1 factor=1,5 bbox=9,9,9,9 cell=9,1 image=in1",
      "p1 blur_v 1x1 size=20.1 radius=10 filter=0 image=p0",
      "out blur_uprez 64x48 factor=1,5 bbox=9,9,9,9 cell=9,1 image=p1"}},
    {"glow",
     {4, 0, 0, 0, 0, 0, 64, 48, 0.5, 1, 2, 3, 4, 5, -1},
     1,
     1,
     {"p0 glow_prep 64x48 tolerance=0.5 image=in1", "p1 blur_h 64x48 size=4 radius=2 filter=0 image=p0",
      "out glow_add 64x48 tint=1,2,3 brightness=4 saturation=5 effect_only=1 image=in1 glow=p1"}},
    {"glow",
     {0, 0, 0, 0, 0, 0, 64, 48, 0.5, 1, 2, 3, 4, 5, 0},
     1,
     1,
     {"p0 glow_prep 64x48 tolerance=0.5 image=in1",
      "out glow_add 64x48 tint=1,2,3 brightness=4 saturation=5 effect_only=0 image=in1 glow=p0"}},
    {"sharpen",
     {0, 4, 0, 0, 0, 0, 64, 48, 2, -1, 1},
     1,
     1,
     {"p0 blur_v 64x48 size=4 radius=2 filter=0 image=in1",
      "out sharpen 64x48 amount=2 min=-1 max=1 image=in1 blur=p0"}},
    {"sharpen", {0, 1, 0, 0, 0, 0, 64, 48, 2, -1, 1}, 1, 0, {}},
    {"dilate",
     {2.25},
     1,
     1,
     {"p0 dilate 64x48 n=2 frac=0.25 max=1 axis=0 image=in1", "out dilate 64x48 axis=1 image=p0"}},
    {"dilate",
     {-inf},
     1,
     1,
     {"p0 dilate 64x48 n=inf frac=0 max=0 axis=0 image=in1", "out dilate 64x48 axis=1 image=p0"}},
    {"filter_erode",
     {-1.5, 3},
     1,
     1,
     {"p0 filter_erode 64x48 size=4 radius=6 filter=3 axis=0 in=0 out=0 image=in1",
      "out filter_erode 64x48 axis=1 image=p0"}},
    {"filter_erode",
     {1, 0},
     1,
     1,
     {"p0 filter_erode 64x48 size=3 radius=1 filter=0 axis=0 in=1 out=0 image=in1",
      "out filter_erode 64x48 axis=1 in=0 out=1 image=p0"}},
    // a = 2: S(1.5; 4) = 1 - 2.5^2 / 32, S(2.5; 4) = 1 - 1.5^2 / 32, so scale 8 and offset -6.4375.
    {"erode",
     {-2, 3, 0, 0, 0, 64, 48},
     1,
     1,
     {"p0 blur_v 64x48 size=4 radius=3 filter=1 image=in1",
      "p1 blur_h 64x48 size=4 radius=3 filter=1 image=p0",
      "p2 erode_blur 64x48 a=8 b=-6.4375 grow=0 image=p1",
      "p3 blur_v 64x48 size=3 radius=4 filter=3 image=p2",
      "out blur_h 64x48 size=3 radius=4 filter=3 image=p3"}},
    // Below half a pixel nothing is blurred: S(-0.25; 0.5) = 1/8, S(0.75; 0.5) = 1.
    {"erode",
     {0.25, -1, 0, 0, 0, 64, 48},
     1,
     1,
     {"out erode_blur 64x48 a=1.14286 b=-0.142857 grow=1 image=in1"}},
    {"erode", {0, 0, 0, 0, 0, 64, 48}, 1, 0, {}},
    {"edgeblur",
     {0, 4, 0, 0, 0, 0, 64, 48, 3, 2, .1, .2, .3, 7},
     2,
     1,
     {"p0 blur_v 64x48 size=4 radius=2 filter=0 image=in1",
      "out edgeblur 64x48 matte_ch=3 edge_mult=2 tint=0.1,0.2,0.3 brightness=7 amount_only=0 image=in1 "
      "blur=p0 "
      "matte=in2"}},
    {"edgeblur", {0, 4, 0, 0, 0, 0, 64, 48, 3, 2, .1, .2, .3, 7}, 1, -1, {}},
    {"disc",
     {4, 0.1, 0},
     1,
     1,
     {"p0 row_prefix 64x48 tile=64 image=in1",
      "out disc_blur 64x48 radius=4,0.1 tile=64 direct=0 image=in1 prefix=p0"}},
    {"disc", {4, 2, 1}, 1, 1, {"out disc_blur 64x48 radius=4,2 tile=64 direct=1 image=in1 prefix=in1"}},
    {"disc", {4, 2, 0}, 2, 1, {"out disc_blur 64x48 radius=4,2 tile=64 direct=0 image=in1 prefix=in2"}},
    {"disc", {0.49, -4, 0}, 1, 0, {}},
    {"disc", {nan, nan, 0}, 1, 0, {}},
    {"Blur", {5, 3, 1, 0, 0, 0, 64, 48}, 1, -1, {}},
    {"", {}, 1, -1, {}},
};

int run(const Case& c, size_t params) {
  return run_op(c.op, std::span(programs::inputs).first(c.inputs), std::span(c.params).first(params),
                programs::target(), 0);
}

TEST(Ops, DrawThesePasses) {
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.op) + " " + ::testing::PrintToString(c.params));
    programs::start();
    EXPECT_EQ(run(c, c.params.size()), c.result);
    EXPECT_EQ(programs::passes(), c.passes);
    const Lines files = op_frags(c.op);
    for (const std::string& line : c.passes) {
      std::istringstream words(line);
      std::string file;
      words >> file >> file;
      EXPECT_EQ(std::count(files.begin(), files.end(), file + ".frag"), 1) << file;
    }
    if (c.result != 1) continue;
    // One parameter or all inputs too few, and the second run makes no object.
    EXPECT_EQ(run(c, c.params.size() - 1), -1);
    EXPECT_EQ(run_op(c.op, {}, c.params, programs::target(), 0), -1);
    const uint64_t created = stats().created;
    EXPECT_EQ(run(c, c.params.size()), 1);
    EXPECT_EQ(stats().created, created);
  }
}

// Whatever the numbers, a run ends with one of its four results and nothing in use.
TEST(Ops, SurviveEveryNumber) {
  const std::vector<double> values{nan,    inf,  -inf, 0,     0.5,    -3,    40,
                                   1e-300, 4096, 1e10, -1e19, 9.3e18, 1e300, -1e300};
  uint64_t state = 7;
  for (const Case& c : cases) {
    programs::start();
    fake_egl::record(false);
    std::vector<double> params(c.params.size());
    for (int turn = 0; turn < 500; ++turn) {
      for (double& value : params) value = values[(state = state * 6364136223846793005U + 1) % values.size()];
      const int result = run_op(c.op, programs::inputs, params, programs::target(), 0);
      ASSERT_TRUE(result >= -1 && result <= 1) << c.op << ::testing::PrintToString(params);
      ASSERT_EQ(stats().in_use, 0U);
    }
    EXPECT_EQ(fake_egl::misuse(), Lines{}) << c.op;
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
  double scale = 0;
  double offset = 1;
  erode_ramp(0, &scale, &offset);
  EXPECT_EQ(scale, 1);
  EXPECT_EQ(offset, 0);
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
