#include <qv/gpu/gl/entry_points.h>
#include <qv/gpu/registry.h>
#include <qv/nodes/filter/ops.h>
#include <qv/nodes/filter/plan.h>

#include "tests/nodes/filter/programs.h"
#include "tests/support/fake_egl/fake_egl.h"

#include <algorithm>
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
using Calls = std::vector<std::string>;

// A copy to 32 x 24, sized half, and a copy of that back to 64 x 48.
int run_two_passes() {
  Plan plan({programs::inputs.data(), 1});
  const int half = plan.pass("copy.frag", 0, {U("u_size", 0.5)}, {}, 32, 24);
  return plan.run(plan.pass("copy.frag", half, {}, {}, 64, 48), programs::target(), 8);
}

TEST(Plan, BindsEachImagesSamplerAndLeavesTheRestoredFramebufferBound) {
  programs::start();
  scratch_sampler(9);
  EXPECT_EQ(run_two_passes(), 1);
  scratch_sampler(0);
  const Calls calls = fake_egl::take_calls();
  EXPECT_EQ(calls.back(), "glBindFramebuffer 0x8d40 8");
  for (const char* bound : {"glBindSampler 0 51", "glBindSampler 0 9"})
    EXPECT_EQ(std::count(calls.begin(), calls.end(), bound), 1) << bound;
}

TEST(Plan, TakesSizesFromTheInputOnlyWithoutAWidth) {
  const std::vector<Tex> images{{1, 2, 3, 40, 30}, {4, 5, 6, 20, 10}};
  Plan plan(images);
  EXPECT_EQ(plan.pass("a", 1, {}, {{"u_x", 0}}, 0, 7), 2);
  EXPECT_EQ(plan.pass("a", -1, {}, {{"u_x", 0}}, 0, 7), 3);
  EXPECT_EQ((std::array{plan.w(2), plan.h(2), plan.w(3), plan.h(3)}), (std::array{20, 10, 0, 7}));
  using Textures = std::vector<std::pair<std::string, int32_t>>;
  EXPECT_EQ(plan.passes[0].textures, (Textures{{"u_image", 1}, {"u_x", 0}}));
  EXPECT_EQ(plan.passes[1].textures, (Textures{{"u_x", 0}}));
}

TEST(Plan, BadPlansAreRefusedBeforeAnyCall) {
  programs::start();
  fake_egl::make_current(fake_egl::fresh_context());
  ASSERT_TRUE(qv::gpu::gl::load(nullptr));
  program_set("unregistered.frag", {999, 1, 4, 6, {}});
  const int huge = std::numeric_limits<int>::max();
  struct Bad {
    const char* what;
    int out, result = run_bad;
    Tex target = programs::target();
    const char* program = "copy.frag";  // of a pass that is added to a good one, which fills slot 1
    int input = 0, w = 0, h = 0;
    std::vector<std::pair<std::string, int>> textures = {};
  };
  const Bad rows[] = {
      {.what = "no such slot", .out = 3},
      {.what = "a negative slot", .out = -1},
      {.what = "an input as output", .out = 0, .result = run_nothing},
      {.what = "a target of another width", .out = 1, .target = programs::target(63)},
      {.what = "a target of another height", .out = 1, .target = programs::target(64, 49)},
      {.what = "no program", .out = 1, .program = "none.frag"},
      {.what = "a program not registered", .out = 1, .program = "unregistered.frag"},
      {.what = "an input beyond the slots", .out = 1, .input = 9},
      {.what = "a texture beyond the slots", .out = 1, .textures = {{"u_absent", 3}}},
      {.what = "a negative texture", .out = 1, .textures = {{"u_blur", -1}}},
      {.what = "no height", .out = 1, .w = 5},
      {.what = "no width", .out = 1, .input = -1, .h = 5},
      {.what = "a size beyond 64 bits", .out = 1, .w = huge, .h = huge},
  };
  const uint64_t runs = stats().runs;
  for (const Bad& row : rows) {
    Plan plan({programs::inputs.data(), 1});
    plan.pass("copy.frag", 0, {}, {}, 0, 0);
    plan.pass(row.program, row.input, {}, row.textures, row.w, row.h);
    EXPECT_EQ(plan.run(row.out, row.target, 0), row.result) << row.what;
  }
  EXPECT_TRUE(fake_egl::take_calls().empty());
  EXPECT_EQ(stats().runs, runs);
}

TEST(Plan, LeavesOutWhatAProgramLacksAndBindsSixteenTextures) {
  programs::start();
  Prog many{1, 700, 4, 6, {}};
  std::vector<std::pair<std::string, int>> textures;
  for (int unit = 0; unit < 17; ++unit) {
    many.samplers.emplace_back("u_" + std::to_string(unit), unit);
    textures.emplace_back("u_" + std::to_string(unit), 0);
  }
  program_set("many.frag", many);
  qv::gpu::program_add(1, "u_matrix", {60, 5, 9});
  Plan plan({programs::inputs.data(), 1});
  // Left out: a name and a sampler that are not there, two components for one, a vector for a matrix.
  const std::vector<Uni> unis{U("u_absent", 1), U2("u_size", 1, 2), U4("u_matrix", 1, 2, 3, 4), U("u_n", 5)};
  const int out = plan.pass("many.frag", 0, unis, textures, 0, 0);
  EXPECT_EQ(plan.run(out, programs::target(), 0), 1);
  const Calls calls = fake_egl::take_calls();
  const auto count = [&](std::string_view start) {
    return std::count_if(calls.begin(), calls.end(),
                         [&](const auto& call) { return call.rfind(start, 0) == 0; });
  };
  EXPECT_EQ(count("glProgramUniform"), 1);
  EXPECT_EQ(count("glProgramUniform1fv 1 10 1 [5]"), 1);
  EXPECT_EQ(count("glBindTexture 0xde1 501"), 16);
  EXPECT_EQ(count("glActiveTexture 0x84cf"), 1);
  EXPECT_EQ(count("glActiveTexture 0x84d0"), 0);
}

TEST(Plan, EveryMissingEntryPointRefusesTheContextUntilOneHasThemAll) {
  for (const char* name :
       {"glGenTextures", "glDeleteTextures", "glTexImage2D", "glTexParameteri", "glGenFramebuffers",
        "glDeleteFramebuffers", "glFramebufferTexture2D", "glDrawBuffers"}) {
    programs::start();
    void* const whole = qv::gpu::gl::current_context();
    EXPECT_EQ(run_two_passes(), 1);
    fake_egl::make_current(fake_egl::fresh_context());
    EXPECT_EQ(run_two_passes(), -2) << "not loaded for this context";
    ASSERT_TRUE(qv::gpu::gl::load(nullptr));
    fake_egl::driver.hidden.insert(name);
    fake_egl::take_calls();
    EXPECT_EQ(run_two_passes(), -2) << name;
    EXPECT_TRUE(fake_egl::take_calls().empty());
    // The context from before still has its textures.
    fake_egl::make_current(whole);
    ASSERT_TRUE(qv::gpu::gl::load(nullptr));
    const uint64_t created = stats().created;
    EXPECT_EQ(run_two_passes(), 1);
    EXPECT_EQ(stats().created, created);
  }
}

// Lost after any number of calls, or refused any object: -2, and every texture is accounted for.
TEST(Plan, FailuresOnTheWayLeaveNamesAndBytesInBalance) {
  const auto run_three = [] {
    Plan plan({programs::inputs.data(), 1});
    const int a = plan.pass("copy.frag", 0, {}, {}, 32, 24);
    const int b = plan.pass("copy.frag", a, {}, {}, 16, 12);
    const int c = plan.pass("copy.frag", b, {}, {{"u_blur", a}}, 64, 48);
    return plan.run(c, programs::target(), 0);
  };
  const auto expect_balance = [](const std::string& when) {
    EXPECT_EQ(stats().in_use, 0U) << when;
    EXPECT_EQ(stats().pooled, fake_egl::alive("texture").bytes) << when;
    EXPECT_EQ(fake_egl::alive("texture").count, fake_egl::alive("framebuffer").count) << when;
    EXPECT_TRUE(fake_egl::driver.misuse.empty()) << when;
  };
  for (int n = 1; n <= 4; ++n) {
    programs::start();
    fake_egl::driver.failing_object = n;
    EXPECT_EQ(run_three(), -2) << n;
    expect_balance("object " + std::to_string(n));
    EXPECT_EQ(run_three(), 1) << n;
    expect_balance("after object " + std::to_string(n));
  }
  int refused = 0;
  // The three draws make 11, 11 and 14 calls.
  for (int n = 1; n <= 36; ++n) {
    programs::start();
    void* const context = qv::gpu::gl::current_context();
    EXPECT_EQ(run_three(), 1);
    const uint64_t evicted = stats().evicted;
    fake_egl::driver.calls_to_switch = n;
    fake_egl::driver.switched_context = fake_egl::fresh_context();
    scratch_cap(0);
    const int result = run_three();
    scratch_cap(536870912);
    refused += result == -2;
    scratch_trim(0);
    EXPECT_EQ(stats().evicted, evicted) << "deleted under the filter context only";
    EXPECT_EQ(stats().pooled, 16U * (32 * 24 + 16 * 12));
    fake_egl::make_current(context);
    expect_balance("lost after " + std::to_string(n));
  }
  EXPECT_EQ(refused, 22) << "lost before the last draw";
}

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
