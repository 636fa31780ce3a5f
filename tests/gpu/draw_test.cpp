#include <qv/gpu/draw.h>
#include <qv/gpu/gl/entry_points.h>

#include "tests/support/fake_egl/fake_egl.h"

#include <array>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

namespace {

namespace gl = qv::gpu::gl;
using qv::gpu::Pending;
using qv::gpu::Unit;

int draw() {
  return qv::gpu::draw(1, 2, 2, 3, nullptr, -1, nullptr, -1, 4, 5, 6, 0);
}

TEST(EntryPoints, EveryMissingOneIsNamedAndLeavesTheOthersInPlace) {
  std::istringstream names(
      "BindFramebuffer Viewport Scissor UseProgram ActiveTexture BindTexture BindSampler BindVertexArray "
      "ProgramUniform1fv ProgramUniform2fv ProgramUniform3fv ProgramUniform4fv ProgramUniformMatrix3fv "
      "ProgramUniformMatrix4fv DrawElementsInstancedBaseInstance GetError");
  for (std::string hidden; names >> hidden;) {
    fake_egl::reset();
    ASSERT_TRUE(gl::load(nullptr));
    fake_egl::driver.hidden.insert("gl" + hidden);
    fake_egl::driver.hidden.insert("glBindFramebuffer");
    std::string error = "old";
    EXPECT_FALSE(gl::load(&error) || gl::load(nullptr) || gl::loaded() || gl::loaded_context());
    EXPECT_EQ(error, "OpenGL entry point gl" + hidden + " not available") << "the last missing one";
    EXPECT_TRUE(!gl::BindFramebuffer && !gl::Viewport == (hidden == "Viewport") &&
                !gl::GetError == (hidden == "GetError"));
    EXPECT_EQ(draw(), -2);
    EXPECT_TRUE(fake_egl::take_calls().empty());
  }
}

TEST(EntryPoints, BelongToTheContextOfTheLastLoadThatCouldLook) {
  fake_egl::reset();
  void* const first = gl::current_context();
  std::string error = "old";
  ASSERT_TRUE(gl::load(&error));
  EXPECT_EQ(error, "old");
  EXPECT_TRUE(gl::loaded() && gl::loaded_context() == first);
  EXPECT_EQ(draw(), 0);

  fake_egl::make_current(nullptr);
  EXPECT_FALSE(gl::load(&error));
  EXPECT_EQ(error, "no current EGL context on this thread");
  EXPECT_TRUE(gl::loaded() && gl::loaded_context() == first);
  EXPECT_EQ(draw(), -2);

  void* const second = fake_egl::fresh_context();
  fake_egl::make_current(second);
  EXPECT_EQ(draw(), -2);
  EXPECT_TRUE(gl::load(nullptr) && gl::loaded_context() == second);
  EXPECT_EQ(draw(), 0);
  std::thread([] { EXPECT_EQ(gl::current_context(), nullptr); }).join();
  fake_egl::make_current(first);
  EXPECT_EQ(draw(), -2);
}

TEST(Draw, BindsUploadsDrawsAndRestoresInThisOrder) {
  fake_egl::reset();
  ASSERT_TRUE(gl::load(nullptr));
  qv::gpu::program_forget(7);
  const std::array pending{Pending{2, 1, {0.5F}}, Pending{5, 4, {1, 2, 3, 4}}};
  const std::array units{Unit{3, 0x0DE1, 11, 12}, Unit{0, 0x0DE1, 13, 0}};
  std::vector<std::string> calls{"glBindFramebuffer 0x8d40 9",
                                 "glViewport 0 0 640 480",
                                 "glScissor 0 0 640 480",
                                 "glUseProgram 7",
                                 "glProgramUniform1fv 7 2 1 [0.5]",
                                 "glProgramUniform4fv 7 5 1 [1 2 3 4]",
                                 "glActiveTexture 0x84c3",
                                 "glBindTexture 0xde1 11",
                                 "glBindSampler 3 12",
                                 "glActiveTexture 0x84c0",
                                 "glBindTexture 0xde1 13",
                                 "glBindSampler 0 0",
                                 "glBindVertexArray 21",
                                 "glDrawElementsInstancedBaseInstance 4 6 0x1405 null 1 0",
                                 "glBindVertexArray 0",
                                 "glBindFramebuffer 0x8d40 1"};
  const qv::gpu::Stats before = qv::gpu::stats();
  for (const auto draws : {qv::gpu::draw, qv::gpu::draw, qv::gpu::draw_in_context}) {
    if (draws == qv::gpu::draw_in_context) fake_egl::make_current(fake_egl::fresh_context());
    EXPECT_EQ(draws(9, 640, 480, 7, pending.data(), 2, units.data(), 2, 21, 4, 6, 1), 0);
    EXPECT_EQ(fake_egl::take_calls(), calls);
    if (calls.size() == 16) calls.erase(calls.begin() + 4, calls.begin() + 6);  // the values are there
  }
  qv::gpu::count_draw();
  EXPECT_EQ(qv::gpu::stats().draws - before.draws, 4U);
  EXPECT_EQ(qv::gpu::stats().uploads - before.uploads, 2U);
  EXPECT_EQ(qv::gpu::stats().skipped - before.skipped, 4U);
}

}  // namespace
