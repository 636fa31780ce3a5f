#pragma once

#include <string>

#include <GL/glcorearb.h>

namespace support {

// A GL 4.2 context without a window, current on the thread that made it and alive until the process
// ends, and the entry points that benchmarks call themselves. Nothing is linked: a machine without EGL
// or a driver gets a null pointer and the reason.
struct GlContext {
  std::string renderer;
  bool software = false;  // drawn by the processor: its times say nothing about a graphics card

// clang-format off
#define QV_BENCH_GL(X) \
  X(PFNGLGETSTRINGPROC, GetString) X(PFNGLGETERRORPROC, GetError) X(PFNGLFINISHPROC, Finish) \
  X(PFNGLCREATESHADERPROC, CreateShader) X(PFNGLSHADERSOURCEPROC, ShaderSource) \
  X(PFNGLCOMPILESHADERPROC, CompileShader) X(PFNGLGETSHADERIVPROC, GetShaderiv) \
  X(PFNGLGETSHADERINFOLOGPROC, GetShaderInfoLog) X(PFNGLCREATEPROGRAMPROC, CreateProgram) \
  X(PFNGLATTACHSHADERPROC, AttachShader) X(PFNGLLINKPROGRAMPROC, LinkProgram) \
  X(PFNGLDELETESHADERPROC, DeleteShader) X(PFNGLGETPROGRAMIVPROC, GetProgramiv) \
  X(PFNGLGETPROGRAMINFOLOGPROC, GetProgramInfoLog) X(PFNGLGETACTIVEUNIFORMPROC, GetActiveUniform) \
  X(PFNGLGETUNIFORMLOCATIONPROC, GetUniformLocation) X(PFNGLPROGRAMUNIFORM1IPROC, ProgramUniform1i) \
  X(PFNGLGENVERTEXARRAYSPROC, GenVertexArrays) X(PFNGLBINDVERTEXARRAYPROC, BindVertexArray) \
  X(PFNGLGENBUFFERSPROC, GenBuffers) X(PFNGLBINDBUFFERPROC, BindBuffer) \
  X(PFNGLBUFFERDATAPROC, BufferData) X(PFNGLGENTEXTURESPROC, GenTextures) \
  X(PFNGLBINDTEXTUREPROC, BindTexture) X(PFNGLTEXIMAGE2DPROC, TexImage2D) \
  X(PFNGLTEXPARAMETERIPROC, TexParameteri) X(PFNGLDELETETEXTURESPROC, DeleteTextures) \
  X(PFNGLGENFRAMEBUFFERSPROC, GenFramebuffers) X(PFNGLBINDFRAMEBUFFERPROC, BindFramebuffer) \
  X(PFNGLFRAMEBUFFERTEXTURE2DPROC, FramebufferTexture2D) X(PFNGLREADPIXELSPROC, ReadPixels) \
  X(PFNGLDELETEFRAMEBUFFERSPROC, DeleteFramebuffers) X(PFNGLISBUFFERPROC, IsBuffer) \
  X(PFNGLBUFFERSTORAGEPROC, BufferStorage) X(PFNGLMAPBUFFERRANGEPROC, MapBufferRange) \
  X(PFNGLUSEPROGRAMPROC, UseProgram) X(PFNGLVIEWPORTPROC, Viewport) \
  X(PFNGLDRAWARRAYSPROC, DrawArrays)
// clang-format on
#define QV_BENCH_GL_MEMBER(type, name) type name = nullptr;
  QV_BENCH_GL(QV_BENCH_GL_MEMBER)
#undef QV_BENCH_GL_MEMBER

  // The process's context, made at the first call; null with `why` set when there is none.
  static const GlContext* get(std::string* why);
};

}  // namespace support
