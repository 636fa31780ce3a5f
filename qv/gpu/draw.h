#pragma once

#include <qv/export.h>
#include <qv/gpu/registry.h>

#include <cstdint>

// One call, one full-target draw, described by plain arrays. Every draw binds all it needs again,
// since the host may have changed any GL state in between; only uniform values are remembered.
// Afterwards no vertex array is bound and the framebuffer is the one named for it; texture units,
// samplers and the program stay as the draw left them. GL errors are not queried.
//
// Everything here: GL thread only.
namespace qv::gpu {

// One texture and sampler for one texture unit.
struct Unit {
  uint32_t unit = 0;     // index, 0 for the first
  uint32_t target = 0;   // GL enumerant, such as GL_TEXTURE_2D
  uint32_t texture = 0;  // GL name
  uint32_t sampler = 0;  // GL name, 0 for the texture's own sampling state
};

// What draw returns.
enum DrawResult : int {
  draw_done = 0,
  draw_refused = -2,  // the current context is not gl::loaded_context()
};

// Draws one instance of `index_count` 32-bit indices, read from the start of the element buffer
// that belongs to `vertex_array`, over a viewport and scissor box of width x height pixels at
// (0, 0); whether the scissor test is on is the host's business. Uploads the pending values first,
// through uniform_set. Arrays are only read during the call; a count below 1 means none.
// Returns a DrawResult; refused, nothing was done.
QV_API int draw(uint32_t framebuffer, int32_t width, int32_t height, uint32_t program, const Pending* pending,
                int32_t pending_count, const Unit* units, int32_t unit_count, uint32_t vertex_array,
                uint32_t mode, int32_t index_count, uint32_t restore_framebuffer);

// The same without the look at the context, for callers that have compared it themselves: never refused.
QV_API int draw_in_context(uint32_t framebuffer, int32_t width, int32_t height, uint32_t program,
                           const Pending* pending, int32_t pending_count, const Unit* units,
                           int32_t unit_count, uint32_t vertex_array, uint32_t mode, int32_t index_count,
                           uint32_t restore_framebuffer);

// Counts a draw that the caller issues by other means.
QV_API void count_draw();

}  // namespace qv::gpu
