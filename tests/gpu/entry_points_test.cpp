#include <qv/gpu/draw.h>
#include <qv/gpu/gl/entry_points.h>

#include "tests/support/fake_egl/fake_egl.h"

#include <algorithm>
#include <array>
#include <thread>

#include <gtest/gtest.h>

namespace gl = qv::gpu::gl;

namespace {

struct Row {
  const char* name;
  bool (*is_null)();
};

const std::array rows{
    Row{"glBindFramebuffer", [] { return gl::BindFramebuffer == nullptr; }},
    Row{"glViewport", [] { return gl::Viewport == nullptr; }},
    Row{"glScissor", [] { return gl::Scissor == nullptr; }},
    Row{"glUseProgram", [] { return gl::UseProgram == nullptr; }},
    Row{"glActiveTexture", [] { return gl::ActiveTexture == nullptr; }},
    Row{"glBindTexture", [] { return gl::BindTexture == nullptr; }},
    Row{"glBindSampler", [] { return gl::BindSampler == nullptr; }},
    Row{"glBindVertexArray", [] { return gl::BindVertexArray == nullptr; }},
    Row{"glDrawElementsInstancedBaseInstance",
        [] { return gl::DrawElementsInstancedBaseInstance == nullptr; }},
    Row{"glProgramUniform1fv", [] { return gl::ProgramUniform1fv == nullptr; }},
    Row{"glProgramUniform2fv", [] { return gl::ProgramUniform2fv == nullptr; }},
    Row{"glProgramUniform3fv", [] { return gl::ProgramUniform3fv == nullptr; }},
    Row{"glProgramUniform4fv", [] { return gl::ProgramUniform4fv == nullptr; }},
    Row{"glProgramUniformMatrix3fv", [] { return gl::ProgramUniformMatrix3fv == nullptr; }},
    Row{"glProgramUniformMatrix4fv", [] { return gl::ProgramUniformMatrix4fv == nullptr; }},
    Row{"glGetError", [] { return gl::GetError == nullptr; }},
};

std::string message(const char* name) {
  return std::string("OpenGL entry point ") + name + " not available";
}

int draw() {
  return qv::gpu::draw(1, 2, 2, 3, nullptr, 0, nullptr, 0, 4, 5, 6, 0);
}

TEST(EntryPoints, EveryMissingOneIsNamedAndLeavesTheOthersInPlace) {
  for (size_t missing = 0; missing < rows.size(); ++missing) {
    fake_egl::reset();
    ASSERT_TRUE(gl::load(nullptr));
    fake_egl::hide(rows[missing].name);
    if (missing > 0) fake_egl::hide(rows[0].name);
    std::string error = "old";
    EXPECT_FALSE(gl::load(&error));
    EXPECT_EQ(error, message(rows[missing].name)) << "the last missing one in table order";
    EXPECT_FALSE(gl::loaded());
    EXPECT_EQ(gl::loaded_context(), nullptr);
    for (size_t i = 0; i < rows.size(); ++i) {
      EXPECT_EQ(rows[i].is_null(), i == missing || i == 0) << rows[missing].name << " " << rows[i].name;
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
