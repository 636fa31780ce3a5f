#include <qv/gpu/draw.h>
#include <qv/gpu/gl/entry_points.h>

#include "tests/support/fake_egl/fake_egl.h"

#include <iterator>
#include <string>
#include <thread>
#include <utility>

#include <gtest/gtest.h>

namespace gl = qv::gpu::gl;

namespace {

template <auto& entry>
bool is_null() {
  return entry == nullptr;
}

const std::pair<const char*, bool (*)()> rows[] = {
    {"glBindFramebuffer", is_null<gl::BindFramebuffer>},
    {"glViewport", is_null<gl::Viewport>},
    {"glScissor", is_null<gl::Scissor>},
    {"glUseProgram", is_null<gl::UseProgram>},
    {"glActiveTexture", is_null<gl::ActiveTexture>},
    {"glBindTexture", is_null<gl::BindTexture>},
    {"glBindSampler", is_null<gl::BindSampler>},
    {"glBindVertexArray", is_null<gl::BindVertexArray>},
    {"glDrawElementsInstancedBaseInstance", is_null<gl::DrawElementsInstancedBaseInstance>},
    {"glProgramUniform1fv", is_null<gl::ProgramUniform1fv>},
    {"glProgramUniform2fv", is_null<gl::ProgramUniform2fv>},
    {"glProgramUniform3fv", is_null<gl::ProgramUniform3fv>},
    {"glProgramUniform4fv", is_null<gl::ProgramUniform4fv>},
    {"glProgramUniformMatrix3fv", is_null<gl::ProgramUniformMatrix3fv>},
    {"glProgramUniformMatrix4fv", is_null<gl::ProgramUniformMatrix4fv>},
    {"glGetError", is_null<gl::GetError>},
};

int draw() {
  return qv::gpu::draw(1, 2, 2, 3, nullptr, 0, nullptr, 0, 4, 5, 6, 0);
}

TEST(EntryPoints, EveryMissingOneIsNamedAndLeavesTheOthersInPlace) {
  for (size_t missing = 0; missing < std::size(rows); ++missing) {
    fake_egl::reset();
    ASSERT_TRUE(gl::load(nullptr));
    fake_egl::hide(rows[missing].first);
    if (missing > 0) fake_egl::hide(rows[0].first);
    std::string error = "old";
    EXPECT_FALSE(gl::load(&error));
    EXPECT_EQ(error, std::string("OpenGL entry point ") + rows[missing].first + " not available")
        << "the last missing one in table order";
    EXPECT_FALSE(gl::loaded());
    EXPECT_EQ(gl::loaded_context(), nullptr);
    for (size_t i = 0; i < std::size(rows); ++i) {
      EXPECT_EQ(rows[i].second(), i == missing || i == 0) << rows[missing].first << " " << rows[i].first;
      if (missing == 0) break;
    }
    EXPECT_FALSE(gl::load(nullptr));
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
  EXPECT_TRUE(gl::loaded());
  EXPECT_EQ(gl::loaded_context(), first);
  EXPECT_EQ(draw(), 0);

  fake_egl::make_current(nullptr);
  EXPECT_FALSE(gl::load(&error));
  EXPECT_EQ(error, "no current EGL context on this thread");
  EXPECT_TRUE(gl::loaded());
  EXPECT_EQ(gl::loaded_context(), first);
  EXPECT_EQ(draw(), -2);

  void* const second = fake_egl::fresh_context();
  fake_egl::make_current(second);
  EXPECT_EQ(draw(), -2);
  EXPECT_TRUE(gl::load(nullptr));
  EXPECT_EQ(gl::loaded_context(), second);
  EXPECT_EQ(draw(), 0);
  std::thread([] { EXPECT_EQ(gl::current_context(), nullptr); }).join();
  fake_egl::make_current(first);
  EXPECT_EQ(draw(), -2);
}

}  // namespace
