#include <qv/gpu/draw.h>
#include <qv/gpu/gl/entry_points.h>

#include "tests/support/fake_egl/fake_egl.h"

#include <array>

#include <gtest/gtest.h>

namespace {

using Calls = std::vector<std::string>;
using qv::gpu::Pending;
using qv::gpu::Unit;

TEST(Draw, BindsUploadsDrawsAndRestoresInThisOrder) {
  fake_egl::reset();
  ASSERT_TRUE(qv::gpu::gl::load(nullptr));
  qv::gpu::program_forget(7);
  const std::array pending{Pending{2, 1, {0.5F}}, Pending{5, 4, {1, 2, 3, 4}}};
  const std::array units{Unit{3, 0x0DE1, 11, 12}, Unit{0, 0x0DE1, 13, 0}};
  const auto draw = [&](auto& function) {
    return function(9, 640, 480, 7, pending.data(), 2, units.data(), 2, 21, 4, 6, 1);
  };
  const Calls head{"glBindFramebuffer 0x8d40 9", "glViewport 0 0 640 480", "glScissor 0 0 640 480",
                   "glUseProgram 7"};
  const Calls uploads{"glProgramUniform1fv 7 2 1 [0.5]", "glProgramUniform4fv 7 5 1 [1 2 3 4]"};
  const Calls bindings{"glActiveTexture 0x84c3", "glBindTexture 0xde1 11", "glBindSampler 3 12",
                       "glActiveTexture 0x84c0", "glBindTexture 0xde1 13", "glBindSampler 0 0"};
  const Calls tail{"glBindVertexArray 21", "glDrawElementsInstancedBaseInstance 4 6 0x1405 null 1 0",
                   "glBindVertexArray 0", "glBindFramebuffer 0x8d40 1"};
  const auto joined = [](std::initializer_list<Calls> parts) {
    Calls all;
    for (const Calls& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
  };
  const qv::gpu::Stats before = qv::gpu::stats();
  EXPECT_EQ(draw(qv::gpu::draw), 0);
  EXPECT_EQ(fake_egl::take_calls(), joined({head, uploads, bindings, tail}));
  EXPECT_EQ(draw(qv::gpu::draw), 0);
  EXPECT_EQ(fake_egl::take_calls(), joined({head, bindings, tail})) << "everything again but the values";
  EXPECT_EQ(qv::gpu::draw(9, 640, 480, 7, nullptr, -1, nullptr, 0, 21, 4, 6, 1), 0);
  EXPECT_EQ(fake_egl::take_calls(), joined({head, tail}));

  fake_egl::make_current(fake_egl::fresh_context());
  EXPECT_EQ(draw(qv::gpu::draw), -2);
  EXPECT_TRUE(fake_egl::take_calls().empty());
  EXPECT_EQ(draw(qv::gpu::draw_in_context), 0);
  EXPECT_EQ(fake_egl::take_calls(), joined({head, bindings, tail}));
  qv::gpu::count_draw();
  EXPECT_EQ(qv::gpu::stats().draws - before.draws, 5U);
  EXPECT_EQ(qv::gpu::stats().uploads - before.uploads, 2U);
  EXPECT_EQ(qv::gpu::stats().skipped - before.skipped, 4U);
}

}  // namespace
