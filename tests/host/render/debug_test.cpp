#include "host/gpu/debug.h"

#include "host/gpu/gl_functions.h"
#include "host/gpu/texture_pool.h"
#include "tests/host/render/scene.h"
#include "tests/support/error.h"

#include <set>

#include <EGL/egl.h>
#include <gtest/gtest.h>

namespace {

using host::gpu::gl;

template <class Function>
Function look_up(const char* name) {
  return reinterpret_cast<Function>(eglGetProcAddress(name));
}

std::string label_of(uint32_t texture) {
  char text[64] = "";
  look_up<PFNGLGETOBJECTLABELPROC>("glGetObjectLabel")(GL_TEXTURE, texture, sizeof text, nullptr, text);
  return text;
}

// The groups that the driver was told of since the last call.
std::multiset<std::string> groups() {
  const auto next = look_up<PFNGLGETDEBUGMESSAGELOGPROC>("glGetDebugMessageLog");
  std::multiset<std::string> names;
  GLenum type = 0;
  char text[256] = "";
  while (next(1, sizeof text, nullptr, &type, nullptr, nullptr, nullptr, text))
    if (type == GL_DEBUG_TYPE_PUSH_GROUP) names.insert(text);
  return names;
}

TEST(Debug, ShowsNodesToWhoeverLooksAtTheGpu) {
  scene::gpu();
  gl.Enable(GL_DEBUG_OUTPUT);
  groups();
  scene::Scene shot(scene::constant("plate", {1, 0, 0, 1}) +
                    scene::node("soft", "plate", "blur", R"("size": 3)") +
                    scene::node("moved", "soft", "transform", R"("translate": 0.5)"));
  shot.image("moved");
  const auto seen = groups();
  EXPECT_TRUE(seen.contains("plate") && seen.contains("soft") && seen.contains("moved"));
  gl.Disable(GL_DEBUG_OUTPUT);

  // A label as long as drivers take.
  host::gpu::TexturePool pool(1 << 20, 64);
  const host::gpu::DebugGroup outer("outer");
  const auto first = pool.acquire(4, 4);
  EXPECT_EQ(label_of(first->name), "outer");
  const host::gpu::DebugGroup inner(std::string(300, 'i'));
  EXPECT_EQ(label_of(pool.acquire(5, 4)->name), std::string(63, 'i'));
}

TEST(Debug, TellsOfErrorsOnce) {
  scene::gpu();
  EXPECT_EQ(support::error_of(host::gpu::throw_errors), "");
  gl.BindTexture(0xBAD, 1);
  gl.TexStorage2D(GL_TEXTURE_2D, 0, GL_RGBA32F, 4, 4);
  const std::string error = support::error_of(host::gpu::throw_errors);
  EXPECT_EQ(error.rfind("OpenGL: invalid enum", 0), 0U) << error;
  EXPECT_EQ(support::error_of(host::gpu::throw_errors), "");
}

}  // namespace
