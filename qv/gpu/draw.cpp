#include <qv/gpu/draw.h>
#include <qv/gpu/gl/entry_points.h>
#include <qv/gpu/gl/enums.h>

namespace qv::gpu {

int draw(uint32_t framebuffer, int32_t width, int32_t height, uint32_t program, const Pending* pending,
         int32_t pending_count, const Unit* units, int32_t unit_count, uint32_t vertex_array, uint32_t mode,
         int32_t index_count, uint32_t restore_framebuffer) {
  if (gl::current_context() != gl::loaded_context()) return draw_refused;
  return draw_in_context(framebuffer, width, height, program, pending, pending_count, units, unit_count,
                         vertex_array, mode, index_count, restore_framebuffer);
}

int draw_in_context(uint32_t framebuffer, int32_t width, int32_t height, uint32_t program,
                    const Pending* pending, int32_t pending_count, const Unit* units, int32_t unit_count,
                    uint32_t vertex_array, uint32_t mode, int32_t index_count, uint32_t restore_framebuffer) {
  gl::BindFramebuffer(gl::FRAMEBUFFER, framebuffer);
  gl::Viewport(0, 0, width, height);
  gl::Scissor(0, 0, width, height);
  gl::UseProgram(program);
  for (int32_t i = 0; i < pending_count; ++i) {
    uniform_set(program, pending[i].location, pending[i].values, pending[i].count);
  }
  for (int32_t i = 0; i < unit_count; ++i) {
    gl::ActiveTexture(gl::TEXTURE0 + units[i].unit);
    gl::BindTexture(units[i].target, units[i].texture);
    gl::BindSampler(units[i].unit, units[i].sampler);
  }
  gl::BindVertexArray(vertex_array);
  gl::DrawElementsInstancedBaseInstance(mode, index_count, gl::UNSIGNED_INT, nullptr, 1, 0);
  gl::BindVertexArray(0);
  gl::BindFramebuffer(gl::FRAMEBUFFER, restore_framebuffer);
  ++uniform_cache::counters.draws;
  return draw_done;
}

void count_draw() {
  ++uniform_cache::counters.draws;
}

}  // namespace qv::gpu
