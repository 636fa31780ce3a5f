#pragma once

#include <qv/export.h>

#include <string>

// The OpenGL functions that the GPU layer calls, fetched at run time: the library links neither GL
// nor EGL, so one build runs on machines with any driver and loads on machines with none.
//
// The host creates an EGL context, makes it current and calls load() on that thread, once a
// context. The table and what is remembered about it are process-wide and unlocked. The library
// opens "libEGL.so.1" once, at the first call that needs it, and never retries.
//
// Everything here: GL thread only, and load() never while another thread draws.
namespace qv::gpu::gl {

// The entry points, under their GL names without the prefix and with GL's own parameters. Null
// until a load() has looked them up; kept after their context is gone. The host may call them too;
// GetError is there for hosts and debugging only, the library never calls it.
extern QV_API void (*BindFramebuffer)(unsigned target, unsigned framebuffer);
extern QV_API void (*Viewport)(int x, int y, int width, int height);
extern QV_API void (*Scissor)(int x, int y, int width, int height);
extern QV_API void (*UseProgram)(unsigned program);
extern QV_API void (*ActiveTexture)(unsigned texture);
extern QV_API void (*BindTexture)(unsigned target, unsigned texture);
extern QV_API void (*BindSampler)(unsigned unit, unsigned sampler);
extern QV_API void (*BindVertexArray)(unsigned array);
extern QV_API void (*DrawElementsInstancedBaseInstance)(unsigned mode, int count, unsigned type,
                                                        const void* indices, int instance_count,
                                                        unsigned base_instance);
extern QV_API void (*ProgramUniform1fv)(unsigned program, int location, int count, const float* values);
extern QV_API void (*ProgramUniform2fv)(unsigned program, int location, int count, const float* values);
extern QV_API void (*ProgramUniform3fv)(unsigned program, int location, int count, const float* values);
extern QV_API void (*ProgramUniform4fv)(unsigned program, int location, int count, const float* values);
extern QV_API void (*ProgramUniformMatrix3fv)(unsigned program, int location, int count,
                                              unsigned char transpose, const float* values);
extern QV_API void (*ProgramUniformMatrix4fv)(unsigned program, int location, int count,
                                              unsigned char transpose, const float* values);
extern QV_API unsigned (*GetError)();

// The EGL context current on the calling thread; null when there is none or no EGL. Costs one call
// into the driver. Thread-safe.
QV_API void* current_context();

// Fills the table for the context current on the calling thread; true when every entry point was
// found. Otherwise assigns the reason to *error, unless that is null:
//   "libEGL.so.1 / eglGetProcAddress not available", "no current EGL context on this thread":
//       nothing has changed, an earlier success stays in force;
//   "OpenGL entry point glViewport not available": the table holds what was found, null for the
//       rest, and loaded() is false. Of several missing ones the last in table order is named.
QV_API bool load(std::string* error);

// Whether the last load() that had a context to look in found everything.
QV_API bool loaded();

// The context for which the table was last filled completely; null before that and after a load()
// that missed an entry point. Draws are refused while another context is current.
QV_API void* loaded_context();

}  // namespace qv::gpu::gl
