#include <qv/nodes/filter/ops.h>
#include <qv/transport/ring.h>

#include "host/programs/shader_library.h"
#include "tests/support/gpu.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <list>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace transport = qv::transport;
using host::gpu::gl;

namespace {

TEST(RingOnDriver, GivesThePixelsOfATexture) {
  std::string why;
  support::Gpu* const gpu = support::Gpu::get(why);
  if (!gpu) GTEST_SKIP() << "no GL driver: " << why;
  constexpr size_t width = 1031, height = 1027;
  std::mt19937 random(3);
  std::vector<float> pixels(4 * width * height);
  for (float& value : pixels) value = static_cast<float>(random()) * 0x1p-20F - 2048.0F;
  const auto texture = gpu->upload(width, height, pixels.data());
  ASSERT_TRUE(transport::init(&why)) << why;
  const std::array<size_t, 5> reads[] = {
      {0, 0, width, height, 4}, {0, 0, width, height, 2}, {7, 13, 1021, 1009, 4}, {130, 1, 1, 1026, 2}};
  for (const auto& [x, y, w, h, channels] : reads) {
    std::vector<float> got(w * h * channels);
    transport::wait(transport::start(texture->framebuffer, 0, int(x), int(y), int(w), int(h), int(channels),
                                     got.data(), nullptr, 0, {}));
    for (size_t i = 0; i < got.size(); ++i) {
      const size_t column = x + i / channels % w, row = y + i / channels / w;
      ASSERT_EQ(got[i], pixels[(row * width + column) * 4 + i % channels]) << w << " x " << h << ": " << i;
    }
  }
  EXPECT_EQ(gl.GetError(), 0U);
  transport::close();
}

// What a seeded sequence of filters among a few textures, with transfers of whole pictures and of parts
// started in between, brings back. Patient: every draw has ended before the next call.
std::list<std::vector<float>> storm(support::Gpu& gpu, bool patient) {
  namespace filter = qv::nodes::filter;
  constexpr int side = 200;
  const std::pair<const char*, std::vector<double>> filters[] = {
      {"dilate", {-6.5}},
      {"blur", {9, 5, 1, 100, 0, 0, side, side}},
      {"sharpen", {3, 3, 3, 100, 0, 0, side, side, 0.5, -1, 1}}};
  std::mt19937 random(11);
  const auto below = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
  std::vector<float> pixels(4 * side * side);
  std::array<host::gpu::TexturePtr, 4> textures;
  for (auto& texture : textures) {
    for (float& value : pixels) value = static_cast<float>(random()) * 0x1p-32F;
    texture = gpu.upload(side, side, pixels.data());
  }
  const auto tex = [&](int i) {
    const auto& texture = *textures[static_cast<size_t>(i)];
    return filter::Tex{texture.name, texture.framebuffer, gpu.pool.sampler(), side, side};
  };
  std::list<std::vector<float>> got;
  for (int step = 0; step < 150; ++step) {
    const int from = below(4);
    const int to = (from + 1 + below(3)) % 4;
    const auto& [op, params] = filters[std::max(0, below(6) - 3)];
    EXPECT_EQ(filter::run_op(op, std::array{tex(from)}, params, tex(to), 0), 1) << op;
    if (patient) gl.Finish();
    const int read = below(3) > 0 ? to : below(4);
    gl.BindFramebuffer(GL_FRAMEBUFFER, tex(read).fbo);
    for (int parts = below(3) == 0 ? 1 + below(3) : 0; parts > 0; --parts) {
      const int x = below(side - 1), y = below(side - 1), w = 1 + below(side - x), h = 1 + below(side - y);
      auto& part = got.emplace_back(static_cast<size_t>(4 * w * h));
      transport::start(tex(read).fbo, 0, x, y, w, h, 4, part.data(), nullptr, 0, {});
    }
    gl.BindFramebuffer(GL_FRAMEBUFFER, 0);
  }
  transport::wait_all();
  return got;
}

TEST(RingOnDriver, BringsBackWhatWasDrawnBeforeWhateverIsDrawnAfter) {
  std::string why;
  support::Gpu* const gpu = support::Gpu::get(why);
  if (!gpu) GTEST_SKIP() << "no GL driver: " << why;
  host::programs::ShaderLibrary shaders(host::programs::ShaderLibrary::default_root());
  for (const char* op : {"blur", "dilate", "sharpen"}) shaders.prepare_filter(op);
  qv::nodes::filter::scratch_sampler(gpu->pool.sampler());
  ASSERT_TRUE(transport::init(&why)) << why;
  const auto expected = storm(*gpu, true);
  for (const int slots : {1, 2, 3, 8}) {
    transport::set_ring_size(slots);
    EXPECT_EQ(storm(*gpu, false), expected) << slots << " slots";
  }
  EXPECT_EQ(transport::stats().failed, 0U);
  transport::close();
  qv::nodes::filter::scratch_trim(0);
  qv::nodes::filter::programs_clear();
}

}  // namespace
