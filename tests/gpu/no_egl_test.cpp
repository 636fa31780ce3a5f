#include <qv/gpu/gl/entry_points.h>
#include <qv/nodes/filter/ops.h>

#include <array>

#include <gtest/gtest.h>

// Runs where "libEGL.so.1" lacks one of the two functions.
TEST(NoEgl, LoadsRunsAndSaysWhatIsMissing) {
  namespace gl = qv::gpu::gl;
  EXPECT_EQ(gl::current_context(), nullptr);
  std::string error = "old";
  EXPECT_FALSE(gl::load(&error));
  EXPECT_EQ(error, "libEGL.so.1 / eglGetProcAddress not available");
  EXPECT_FALSE(gl::load(nullptr));
  EXPECT_FALSE(gl::loaded());
  EXPECT_EQ(gl::loaded_context(), nullptr);
  EXPECT_EQ(gl::BindFramebuffer, nullptr);

  using namespace qv::nodes::filter;
  program_set("dilate.frag", {});
  const std::array input{Tex{1, 1, 0, 8, 8}};
  EXPECT_EQ(run_op("dilate", input, std::array{2.0}, input[0], 0), -1);
  scratch_trim(0);
  EXPECT_EQ(stats().bytes, 0U);
}
