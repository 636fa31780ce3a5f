#include <qv/gpu/draw.h>
#include <qv/gpu/gl/entry_points.h>

#include "tests/support/fake_egl/fake_egl.h"

#include <array>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

namespace gl = qv::gpu::gl;
using qv::gpu::Pending;
using qv::gpu::Unit;

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
  return qv::gpu::draw(1, 2, 2, 3, nullptr, -1, nullptr, -1, 4, 5, 6, 0);
}

TEST(EntryPoints, EveryMissingOneIsNamedAndLeavesTheOthersInPlace) {
  for (const auto& [hidden, ignored] : rows) {
    fake_egl::reset();
    ASSERT_TRUE(gl::load(nullptr));
    fake_egl::hide(hidden);
    fake_egl::hide(rows[0].first);
    std::string error = "old";
    EXPECT_FALSE(gl::load(&error) || gl::load(nullptr) || gl::loaded() || gl::loaded_context());
    EXPECT_EQ(error, std::string("OpenGL entry point ") + hidden + " not available")
        << "the last missing one in table order";
    for (const auto& [name, null] : rows) EXPECT_EQ(null(), name == hidden || name == rows[0].first) << name;
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
