#include <qv/transport/ring.h>

#include "tests/support/gpu.h"

#include <cstring>
#include <random>
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

}  // namespace
