#include <qv/nodes/filter/ops.h>
#include <qv/transport/ring.h>

#include "host/programs/shader_library.h"
#include "tests/support/gpu.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <list>
#include <random>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <malloc.h>

namespace transport = qv::transport;
using host::gpu::gl;

namespace {

constexpr int width = 1031, height = 1027;

host::gpu::TexturePtr noise(support::Gpu& gpu) {
  std::mt19937 random(3);
  std::vector<float> pixels(4 * width * height);
  for (float& value : pixels) value = static_cast<float>(random()) * 0x1p-20F - 2048.0F;
  return gpu.upload(width, height, pixels.data());
}

TEST(RingOnDriver, GivesWhatAPlainReadGivesAndKeepsNothing) {
  std::string why;
  support::Gpu* const gpu = support::Gpu::get(why);
  if (!gpu) GTEST_SKIP() << "no GL driver: " << why;
  const host::gpu::TexturePtr texture = noise(*gpu);
  const unsigned framebuffer = texture->framebuffer;
  const auto find = [](auto& function, const char* name) {
    using Find = void* (*)(const char*);
    static const auto address = reinterpret_cast<Find>(::dlsym(RTLD_DEFAULT, "eglGetProcAddress"));
    function = reinterpret_cast<std::decay_t<decltype(function)>>(address(name));
  };
  PFNGLREADPIXELSPROC read_pixels = nullptr;
  PFNGLISBUFFERPROC is_buffer = nullptr;
  find(read_pixels, "glReadPixels");
  find(is_buffer, "glIsBuffer");
  ASSERT_TRUE(transport::init(&why)) << why;
  const struct {
    int x, y, w, h, channels;
  } reads[] = {
      {0, 0, width, height, 4}, {0, 0, width, height, 2}, {7, 13, 1021, 1009, 4}, {130, 1, 1, 1026, 2}};
  for (const auto& r : reads) {
    std::vector<float> plain(static_cast<size_t>(r.w * r.h * r.channels)), ours(plain.size());
    gl.BindFramebuffer(GL_FRAMEBUFFER, framebuffer);
    read_pixels(r.x, r.y, r.w, r.h, r.channels == 2 ? GL_RG : GL_RGBA, GL_FLOAT, plain.data());
    gl.BindFramebuffer(GL_READ_FRAMEBUFFER, 0);
    transport::wait(transport::start(framebuffer, framebuffer, r.x, r.y, r.w, r.h, r.channels, ours.data(),
                                     nullptr, 0, {}));
    EXPECT_EQ(std::memcmp(plain.data(), ours.data(), plain.size() * sizeof(float)), 0) << r.w << 'x' << r.h;
  }

  std::vector<float> out(4 * 64 * 64);
  size_t memory[2] = {};
  for (int n = 0; n < 11000; ++n) {
    transport::start(framebuffer, framebuffer, n % 900, n % 700, 64, 64, 4, out.data(), nullptr, 0, {});
    if (n % 1000 != 999) continue;
    transport::close();
    for (unsigned name = 1; name < 100; ++name) ASSERT_FALSE(is_buffer(name));
    memory[n > 1000] = mallinfo2().uordblks;
    ASSERT_TRUE(transport::init(nullptr));
  }
  EXPECT_EQ(gl.GetError(), 0U);
  EXPECT_EQ(transport::stats().completed, 11004U);
  EXPECT_LE(memory[1], memory[0] + 65536);
  transport::close();
}

// What a seeded sequence of filters among a few textures, with transfers of whole pictures and of parts
// started in between, brings back. Patient: every draw has ended before the next call.
std::list<std::vector<float>> storm(support::Gpu& gpu, bool patient) {
  namespace filter = qv::nodes::filter;
  constexpr int side = 200;
  const struct {
    const char* op;
    std::vector<double> params;
  } filters[] = {{"dilate", {-6.5}},
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
