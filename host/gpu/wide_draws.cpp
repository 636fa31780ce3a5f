#include "host/gpu/wide_draws.h"

#include "host/gpu/gl_functions.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>

namespace host::gpu {
namespace {

namespace entry = qv::gpu::gl;

int alive = 0;
std::map<uint32_t, WideDraws::Shape> shapes;
decltype(entry::DrawElementsInstancedBaseInstance) draw_below = nullptr;

int parts(int pixels, int each) {
  return (pixels + each - 1) / each;
}

void draw(unsigned mode, int count, unsigned type, const void* indices, int instances, unsigned base) {
  GLint program = 0;
  gl.GetIntegerv(GL_CURRENT_PROGRAM, &program);
  const auto found = shapes.find(static_cast<uint32_t>(program));
  if (found == shapes.end()) return draw_below(mode, count, type, indices, instances, base);

  GLint target = 0;
  gl.GetFramebufferAttachmentParameteriv(GL_DRAW_FRAMEBUFFER, GL_COLOR_ATTACHMENT0,
                                         GL_FRAMEBUFFER_ATTACHMENT_OBJECT_NAME, &target);
  std::array<GLint, 4> viewport{};
  gl.GetIntegerv(GL_VIEWPORT, viewport.data());
  gl.BindImageTexture(0, static_cast<uint32_t>(target), 0, GL_FALSE, 0, GL_WRITE_ONLY, GL_RGBA32F);
  // The program writes no colour output; what a framebuffer would then receive is undefined.
  gl.DrawBuffer(GL_NONE);
  const auto [across, down, most_fold] = found->second;
  const int fold = std::min(most_fold, viewport[3]);
  entry::Viewport(0, 0, parts(viewport[2], across * fold), fold * parts(viewport[3], down));
  draw_below(mode, count, type, indices, instances, base);
  entry::Viewport(0, 0, viewport[2], viewport[3]);
  gl.DrawBuffer(GL_COLOR_ATTACHMENT0);
  gl.MemoryBarrier(GL_TEXTURE_FETCH_BARRIER_BIT | GL_FRAMEBUFFER_BARRIER_BIT | GL_TEXTURE_UPDATE_BARRIER_BIT |
                   GL_PIXEL_BUFFER_BARRIER_BIT);
}

}  // namespace

decltype(entry::DrawElementsInstancedBaseInstance)& draw_as_seen() {
  return alive > 0 ? draw_below : entry::DrawElementsInstancedBaseInstance;
}

WideDraws::WideDraws() {
  if (alive++ > 0) return;
  draw_below = entry::DrawElementsInstancedBaseInstance;
  entry::DrawElementsInstancedBaseInstance = draw;
}

WideDraws::~WideDraws() {
  for (const uint32_t program : programs_) shapes.erase(program);
  if (--alive == 0) entry::DrawElementsInstancedBaseInstance = draw_below;
}

void WideDraws::add(uint32_t program, const Shape& shape) {
  programs_.push_back(program);
  shapes[program] = shape;
}

}  // namespace host::gpu
