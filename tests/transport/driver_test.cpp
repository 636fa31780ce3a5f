#include <qv/transport/ring.h>

#include "tests/support/gl_context.h"

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <malloc.h>

namespace transport = qv::transport;

namespace {

constexpr int width = 1031, height = 1027;

unsigned noise(const support::GlContext& gl) {
  std::mt19937 random(3);
  std::vector<float> pixels(4 * width * height);
  for (float& value : pixels) value = static_cast<float>(random()) * 0x1p-20F - 2048.0F;
  unsigned texture = 0, framebuffer = 0;
  gl.GenTextures(1, &texture);
  gl.BindTexture(GL_TEXTURE_2D, texture);
  gl.TexImage2D(GL_TEXTURE_2D, 0, GL_RGBA32F, width, height, 0, GL_RGBA, GL_FLOAT, pixels.data());
  gl.GenFramebuffers(1, &framebuffer);
  gl.BindFramebuffer(GL_FRAMEBUFFER, framebuffer);
  gl.FramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture, 0);
  return framebuffer;
}

TEST(RingOnDriver, GivesWhatAPlainReadGivesAndKeepsNothing) {
  std::string why;
  const support::GlContext* gl = support::GlContext::get(&why);
  if (!gl) GTEST_SKIP() << "no GL driver: " << why;
  const unsigned framebuffer = noise(*gl);
  ASSERT_TRUE(transport::init(&why)) << why;
  const struct {
    int x, y, w, h, channels;
  } reads[] = {
      {0, 0, width, height, 4}, {0, 0, width, height, 2}, {7, 13, 1021, 1009, 4}, {130, 1, 1, 1026, 2}};
  for (const auto& r : reads) {
    std::vector<float> plain(static_cast<size_t>(r.w * r.h * r.channels)), ours(plain.size());
    gl->ReadPixels(r.x, r.y, r.w, r.h, r.channels == 2 ? GL_RG : GL_RGBA, GL_FLOAT, plain.data());
    gl->BindFramebuffer(GL_READ_FRAMEBUFFER, 0);
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
    for (unsigned name = 1; name < 100; ++name) ASSERT_FALSE(gl->IsBuffer(name));
    memory[n > 1000] = mallinfo2().uordblks;
    ASSERT_TRUE(transport::init(nullptr));
  }
  EXPECT_EQ(gl->GetError(), 0U);
  EXPECT_EQ(transport::stats().completed, 11004U);
  EXPECT_LE(memory[1], memory[0] + 65536);
  transport::close();
}

}  // namespace
