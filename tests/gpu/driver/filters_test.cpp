#include <qv/nodes/filter/ops.h>
#include <qv/transport/ring.h>

#include "host/programs/shader_library.h"
#include "tests/support/gpu.h"
#include "tests/support/reference.h"

#include <cstdlib>
#include <cstring>
#include <limits>
#include <span>
#include <tuple>

#include <gtest/gtest.h>

// The filters and their fragment programs on the driver of this machine, against references written
// from the formulas. Tolerances follow from the storage: a float for every pixel after every pass.

namespace {

using reference::Picture;
using support::Gpu;
using support::photograph;

constexpr double float_storage = 4e-6;  // of the largest magnitude, after sums of up to 100 products
constexpr float nan = std::numeric_limits<float>::quiet_NaN();
constexpr float infinity = std::numeric_limits<float>::infinity();

// Textures are read texel by texel, through samplers that take the nearest one, or as the host has it
// where a processor draws: with blurs of several pixels a fragment.
enum class Way { texels, samplers, wide };

// What run_op says; `out` keeps its size and receives what was drawn.
int run_filter(const std::string& op, std::span<const Picture> inputs, std::span<const double> params,
               Picture& out, Way way) {
  using namespace qv::nodes::filter;
  using host::programs::ShaderLibrary;
  namespace transport = qv::transport;
  static std::string why;
  static Gpu& gpu = *Gpu::get(why);
  static ShaderLibrary& shaders = []() -> ShaderLibrary& {
    auto* const library = new ShaderLibrary(ShaderLibrary::default_root());
    library->widen_blurs();
    return *library;
  }();
  programs_clear();
  if (way == Way::wide) {
    shaders.prepare_filter(op);
  } else {
    for (const std::string& file : op_frags(op)) {
      const auto& program = shaders.get(file, way == Way::samplers ? "" : "#undef NEAREST_SAMPLERS\n");
      program_set(file, {program.name, shaders.vertex_array(), shaders.draw_mode(), shaders.index_count(),
                         program.samplers});
    }
  }
  const unsigned sampler = way == Way::texels ? 0 : gpu.pool.sampler();
  scratch_sampler(sampler);
  std::vector<host::gpu::TexturePtr> textures;
  std::vector<Tex> texs;
  const auto add = [&](const Picture& picture) {
    textures.push_back(gpu.upload(picture.w, picture.h, picture.rgba.data()));
    texs.push_back({textures.back()->name, textures.back()->framebuffer, sampler, picture.w, picture.h});
  };
  for (const Picture& input : inputs) add(input);
  add(out);
  const unsigned target = texs.back().fbo;
  const int result = run_op(op, std::span(texs).first(inputs.size()), params, texs.back(), target);
  int bound = 0;
  host::gpu::gl.GetIntegerv(GL_FRAMEBUFFER_BINDING, &bound);
  EXPECT_TRUE(result < run_drawn || bound == static_cast<int>(target)) << op;
  EXPECT_TRUE(transport::init(&why)) << why;
  transport::wait(transport::start(target, 0, 0, 0, out.w, out.h, 4, out.rgba.data(), nullptr, 0, {}));
  transport::close();
  EXPECT_EQ(host::gpu::gl.GetError(), 0U) << op;
  return result;
}

// What a filter leaves of `under`, each way alike.
Picture run(const std::string& op, std::span<const Picture> inputs, std::span<const double> params,
            const Picture& under, int least_result) {
  std::vector<Picture> drawn;
  for (const Way way : {Way::texels, Way::samplers, Way::wide}) {
    drawn.push_back(under);
    EXPECT_GE(run_filter(op, inputs, params, drawn.back(), way), least_result) << op;
    EXPECT_EQ(std::memcmp(drawn[0].rgba.data(), drawn.back().rgba.data(), under.rgba.size() * sizeof(float)),
              0)
        << op << (way == Way::wide ? ", wide" : ", samplers");
  }
  return drawn[0];
}

class Filters : public testing::Test {
 protected:
  void SetUp() override {
    std::string why;
    if (Gpu::get(why)) return;
    const int count = testing::UnitTest::GetInstance()->total_test_count();
    if (std::getenv("CI")) FAIL() << "no GL driver in CI: " << why;
    GTEST_SKIP() << "skipped: no GL driver (" << count << " tests here): " << why;
  }
};

// The result of a filter that draws.
Picture run(const std::string& op, const std::vector<Picture>& inputs, const std::vector<double>& params) {
  return run(op, inputs, params, Picture(inputs[0].w, inputs[0].h, -7), qv::nodes::filter::run_drawn);
}

void expect_near(const Picture& got, const Picture& want, double relative, const std::string& what) {
  double largest = 0;
  for (const float v : want.rgba) largest = std::max(largest, double(std::fabs(v)));
  for (size_t i = 0; i < want.rgba.size(); ++i) {
    const size_t x = i / 4 % static_cast<size_t>(want.w), y = i / 4 / static_cast<size_t>(want.w);
    ASSERT_LE(std::fabs(double(got.rgba[i]) - double(want.rgba[i])), relative * largest + 1e-12)
        << what << ": at x " << x << " y " << y << " channel " << i % 4 << ": " << got.rgba[i] << ", not "
        << want.rgba[i];
  }
}

// What a filter makes of the first picture, with the second where there is one, against what is wanted.
void check(const std::string& op, const std::vector<Picture>& inputs, const std::vector<double>& params,
           const Picture& want, double relative = float_storage) {
  const std::string what = op + " of " + std::to_string(want.w) + " x " + std::to_string(want.h) + " by " +
                           testing::PrintToString(params);
  expect_near(run(op, inputs, params), want, relative, what);
}

// Small pictures of every awkward shape, an impulse in its own right, and a photograph.
std::vector<Picture> pictures() {
  std::vector<Picture> result;
  for (const auto& [w, h] : {std::pair{1, 1}, {1, 9}, {13, 1}, {31, 23}}) result.push_back(photograph(w, h));
  Picture impulse(29, 27);
  for (int c = 0; c < 4; ++c) impulse.at(14, 13, c) = static_cast<float>(c + 1);
  result.push_back(impulse);
  result.push_back(photograph(97, 61));
  return result;
}

std::vector<double> blur_params(double sx, double sy, int filter, const Picture& p, int limit = 0) {
  return {sx, sy, filter + 0.9, double(limit), 0, 0, double(p.w), double(p.h)};
}

TEST_F(Filters, blurs_extrema_and_discs_match_their_formulas) {
  for (const Picture& picture : pictures()) {
    for (int filter = 0; filter < 4; ++filter) {
      for (const auto& [sx, sy] : {std::pair{3.0, 3.0}, {8.5, 2.4}, {1.7, 26.0}})
        check("blur", {picture}, blur_params(sx, sy, filter, picture),
              reference::blur(picture, sx, sy, filter));
      for (const double amount : {1.0, -1.0, 2.6, -3.3})
        check("filter_erode", {picture}, {amount, double(filter)},
              reference::filter_erode(picture, amount, filter));
    }
    for (const double amount : {2.0, -2.0, 1.3, -0.4, 6.75})
      check("dilate", {picture}, {amount}, reference::dilate(picture, amount));
    for (const auto& [rx, ry] : {std::pair{0.0, 0.7}, {1.0, 1.0}, {4.3, 2.5}, {0.2, 7.0}, {33.6, 11.2}})
      for (const double direct : {0.0, 1.0})
        check("disc", {picture}, {rx, ry, direct}, reference::disc(picture, rx, ry),
              direct > 0 ? float_storage : 1e-4);
  }
}

// The operations that look at one pixel once something is blurred.
TEST_F(Filters, blends_match_their_formulas) {
  for (const Picture& picture : pictures()) {
    const Picture blurred = reference::blur(picture, 6, 4, 3), matte = photograph(picture.w, picture.h, 7);
    const auto with = [params = blur_params(6, 4, 3, picture)](std::vector<double> more) {
      more.insert(more.begin(), params.begin(), params.end());
      return more;
    };
    Picture light = picture;
    for (float& v : light.rgba) v = std::max(v - 0.3F, 0.0F);
    light = reference::blur(light, 6, 4, 3);
    for (const bool alone : {false, true}) {
      const auto glow = [alone](const float* a, const float* g, float* o, int, int) {
        const double grey = 0.2126 * g[0] + 0.7152 * g[1] + 0.0722 * g[2], tint[3] = {1.5, 1, 0.25};
        for (int c = 0; c < 3; ++c)
          o[c] = static_cast<float>((alone ? 0 : a[c]) + 0.8 * tint[c] * (grey + 1.4 * (g[c] - grey)));
        const double base = alone ? 0 : a[3];
        o[3] = static_cast<float>(std::min(base + 0.8 * g[3], std::max(base, 1.0)));
      };
      check("glow", {picture}, with({0.3, 1.5, 1, 0.25, 0.8, 1.4, alone ? -1.0 : 0.0}),
            reference::each_pixel(picture, light, glow));
    }
    const auto sharpened = [](const float* a, const float* b, float* o, int, int) {
      for (int c = 0; c < 3; ++c) o[c] = a[c] + 2.5F * std::min(std::max(a[c] - b[c], -0.1F), 0.06F);
      o[3] = a[3];
    };
    check("sharpen", {picture}, with({2.5, -0.1, 0.06}), reference::each_pixel(picture, blurred, sharpened));
    // The edge's ramp, by hand: S, the integral of the triangle of half width w = 2 a, of a triangle over 4
    // pixels S(1.5; 4) = 1 - 2.5^2 / 32 and S(2.5; 4) = 1 - 1.5^2 / 32; half a pixel blurs nothing.
    const double w = picture.w, h = picture.h;
    for (const auto& [amount, scale, offset] :
         {std::tuple{-2.0, 8.0F, -6.4375F}, {2.0, 8.0F, -6.4375F}, {0.25, 8 / 7.0F, -1 / 7.0F}}) {
      Picture moved = std::abs(amount) < 0.5 ? picture : reference::blur(picture, 4, 4, 1);
      for (float& v : moved.rgba) {
        const float inwards = std::clamp(scale * (amount > 0 ? 1 - v : v) + offset, 0.0F, 1.0F);
        v = amount > 0 ? 1 - inwards : inwards;
      }
      check("erode", {picture}, {amount, 0, 0, 0, 0, w, h}, moved, 8 * float_storage);
    }
    check("erode", {picture}, {0, 5, 0, 0, 0, w, h}, reference::blur(picture, 5, 5, 3));
    const auto edge = [&matte](const float* a, const float* b, float* o, int x, int y) {
      float least = infinity, most = -infinity;
      for (int i = 0; i < 9; ++i) {
        least = std::min(least, matte.held(x + i % 3 - 1, y + i / 3 - 1, 1));
        most = std::max(most, matte.held(x + i % 3 - 1, y + i / 3 - 1, 1));
      }
      const float part = std::min(1.7F * (most - least), 1.0F), tint[4] = {0.625F, 2.5F, 1.25F, 1};
      for (int c = 0; c < 4; ++c) o[c] = a[c] + part * (b[c] * tint[c] - a[c]);
    };
    check("edgeblur", {picture, matte}, with({1, 1.7, 0.5, 2, 1, 1.25}),
          reference::each_pixel(picture, blurred, edge));
  }
}

double rms(const Picture& a, const Picture& b) {
  double sum = 0, scale = 0;
  for (size_t i = 0; i < a.rgba.size(); ++i) {
    sum += std::pow(double(a.rgba[i]) - double(b.rgba[i]), 2);
    scale += std::pow(double(b.rgba[i]), 2);
  }
  return std::sqrt(sum / scale);
}

// The sharpest bend along x, which blocks or kinks would raise.
double sharpest_bend(const Picture& p) {
  double result = 0;
  for (int y = 0; y < p.h; ++y)
    for (int x = 1; x + 1 < p.w; ++x)
      result = std::max(result, std::fabs(double(p.at(x - 1, y, 1)) - 2 * double(p.at(x, y, 1)) +
                                          double(p.at(x + 1, y, 1))));
  return result;
}

TEST_F(Filters, a_blur_through_a_coarse_image_looks_like_the_full_one) {
  const Picture picture = photograph(403, 259);
  const Picture full = run("blur", {picture}, blur_params(100, 100, 3, picture));
  for (const auto& [x, y] : {std::pair{0, 0}, {-7, 5}, {1001, -3002}}) {
    std::vector<double> params = {100, 100, 3, 25, double(x), double(y), x + 403.0, y + 259.0};
    EXPECT_LT(rms(run("blur", {picture}, params), full), 0.01) << "window at " << x << " " << y;
    params[3] = 12.5;  // factor 9, truncated limit 12
    const Picture coarse = run("blur", {picture}, params);
    EXPECT_LT(rms(coarse, full), 0.02);
    EXPECT_LT(sharpest_bend(coarse), sharpest_bend(full));
  }
  // Even where the coarse image has a sharp rim, nothing turns negative and no alpha exceeds 1.
  const Picture rim = run("blur", {picture}, blur_params(40, 40, 0, picture, 3));
  for (size_t i = 0; i < rim.rgba.size(); ++i)
    ASSERT_TRUE(rim.rgba[i] >= 0 && (i % 4 < 3 || rim.rgba[i] <= 1));
}

TEST_F(Filters, a_hard_edge_moves_by_the_amount) {
  Picture matte(80, 5);
  for (size_t i = 0; i < matte.rgba.size(); ++i) matte.rgba[i] = i / 4 % 80 < 40 ? 1 : 0;
  // By what a line holds: an edge pixel's value is the part of it inside.
  const auto edge = [&](double amount, double softness, double limit) {
    const Picture moved = run("erode", {matte}, {amount, softness, limit, 0, 0, 80, 5});
    double sum = 0;
    for (int x = 0; x < 80; ++x) sum += double(moved.at(x, 2, 3));
    return sum;
  };
  for (const double amount : {3.0, 1.5, -2.25, -1.0, 1.0, 10.0, -14.6})
    EXPECT_NEAR(edge(amount, 0, 0), 40 + amount, 0.2) << amount;
  EXPECT_NEAR(edge(3, 8, 0), 43, 0.2) << "softened";
  EXPECT_NEAR(edge(16, 0, 8), 56, 1) << "through a coarse image";
}

TEST_F(Filters, both_ways_of_the_disc_agree_beside_a_far_brighter_pixel) {
  Picture picture = photograph(150, 9);
  for (float& v : picture.rgba) v *= 0.01F;
  for (int c = 0; c < 4; ++c) picture.at(70, 4, c) = 1e7F;  // and, in the same tile of sums:
  for (int x = 90; x < 150; ++x) picture.at(x, 4, 0) = 1e-6F;
  const Picture sums = run("disc", {picture}, {6, 5, 0}), direct = run("disc", {picture}, {6, 5, 1});
  for (int y = 0; y < 9; ++y)
    for (int x = 0; x < 150; ++x) {
      double reach = 0;
      for (int dy = -5; dy <= 5; ++dy)
        for (int dx = -6; dx <= 6; ++dx)
          for (int c = 0; c < 4; ++c) reach = std::max(reach, double(picture.held(x + dx, y + dy, c)));
      for (int c = 0; c < 4; ++c)
        ASSERT_NEAR(sums.at(x, y, c), direct.at(x, y, c), 1e-4 * reach) << x << " " << y;
    }
  // A table of sums made elsewhere gives the same picture.
  Picture table = picture;
  for (int y = 0; y < 9; ++y)
    for (int x = 0; x < 150; ++x)
      for (int c = 0; c < 4 && x % 64 > 0; ++c) table.at(x, y, c) += table.at(x - 1, y, c);
  check("disc", {picture, table}, {6, 5, 0}, direct, 1e-4);
}

TEST_F(Filters, what_is_no_number_stays_where_it_is) {
  const int w = 150, h = 41, at_x = 70, at_y = 20;
  const Picture matte = photograph(w, h, 3);
  // What lies farther away than the last says is never touched.
  const std::tuple<const char*, std::vector<double>, int> table[] = {
      {"blur", {3, 3, 0, 0, 0, 0, w, h}, 1},
      {"blur", {4, 4, 1, 0, 0, 0, w, h}, 3},
      {"blur", {4, 4, 2, 0, 0, 0, w, h}, 5},
      {"blur", {4, 4, 3, 0, 0, 0, w, h}, 6},
      {"blur", {1, 9, 0, 3, 0, 0, w, h}, 12},
      {"dilate", {-2.5}, 3},
      {"dilate", {3}, 3},
      {"filter_erode", {2, 0}, 2},
      {"filter_erode", {-2, 1}, 4},
      {"erode", {1.5, 0, 0, 0, 0, w, h}, 2},
      {"disc", {4, 4, 0}, 4},
      {"disc", {4, 4, 1}, 4},
      {"glow", {3, 3, 2, 0, 0, 0, w, h, 0.1, 1, 1, 1, 1, 1, 0}, 4},
      {"glow", {3, 3, 2, 0, 0, 0, w, h, 0.1, 1, 1, 1, 0, 1, 0}, 0},
      {"sharpen", {3, 3, 2, 0, 0, 0, w, h, 1, -1, 1}, 4},
      {"edgeblur", {3, 3, 2, 0, 0, 0, w, h, 0, 1, 1, 1, 1, 1}, 4},
  };
  for (const float bad : {nan, infinity, -infinity})
    for (const auto& [op, params, pixels] : table) {
      Picture picture = photograph(w, h);
      const Picture clean = run(op, {picture, matte}, params);
      for (int c = 0; c < 4; ++c) picture.at(at_x, at_y, c) = bad;
      const Picture got = run(op, {picture, matte}, params);
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
          const bool coarse_lines = pixels == 12;  // only y is coarse there
          if (std::abs(x - at_x) <= (coarse_lines ? 0 : pixels) && std::abs(y - at_y) <= pixels) continue;
          for (int c = 0; c < 4; ++c)
            ASSERT_EQ(got.at(x, y, c), clean.at(x, y, c)) << op << " " << x << " " << y;
        }
    }
}

TEST_F(Filters, odd_parameters_do_no_harm) {
  // Which parameters are made odd (a box of nonsense is the host's fault), and whether constants stay.
  const std::tuple<std::string, std::vector<double>, std::vector<size_t>, bool> cases[] = {
      {"blur", {4, 3, 1, 2, 0, 0, 5, 3}, {0, 1, 2, 3}, true},
      {"blur", {4, 3, 3, 0, 0, 0, 5, 3}, {0, 1, 2, 4, 5, 6, 7}, true},
      {"dilate", {1.5}, {0}, true},
      {"filter_erode", {1.5, 1}, {0, 1}, true},
      {"disc", {2, 3, 0}, {0, 1, 2}, true},
      {"disc", {2, 3, 1}, {0, 1}, true},
      {"erode", {1.5, 2, 0, 0, 0, 5, 3}, {0, 1, 2}, false},
      {"glow", {4, 3, 1, 2, 0, 0, 5, 3, 0.1, 1, 1, 1, 1, 1, 0}, {0, 2, 8, 9, 12, 13, 14}, false},
      {"sharpen", {4, 3, 1, 2, 0, 0, 5, 3, 1, -1, 1}, {0, 8, 9, 10}, false},
      {"edgeblur", {4, 3, 1, 2, 0, 0, 5, 3, 1, 1, 1, 1, 1, 1}, {0, 8, 9, 10, 13}, true},
  };
  const Picture flat(5, 3, 0.5F);
  const std::vector<Picture> inputs = {flat, flat};
  for (const auto& [op, sound, places, keeps_constants] : cases)
    for (const size_t i : places)
      for (const double odd : {-3.0, 0.0, 1e9, -1e300, 1e300, double(infinity), double(nan)}) {
        std::vector<double> params = sound;
        params[i] = odd;
        const size_t used = op == "edgeblur" ? 2 : 1;
        const Picture out = run(op, std::span(inputs).first(used), params, flat, 0);
        if (keeps_constants) expect_near(out, flat, 1e-4, op + testing::PrintToString(params));
      }
}

}  // namespace
