#pragma once

#include <string>

#include <GL/glcorearb.h>

namespace host::gpu {

// The OpenGL functions that the host calls itself, beside those that the library fetches for its
// draws. Nothing is linked: they are looked up when a context is opened, so that the program starts
// on machines without a driver and can say so. Valid while a GpuContext is. GL thread only.
#define HOST_GL_FUNCTIONS(X)                                                           \
  X(PFNGLATTACHSHADERPROC, AttachShader)                                               \
  X(PFNGLBEGINQUERYPROC, BeginQuery)                                                   \
  X(PFNGLBINDBUFFERPROC, BindBuffer)                                                   \
  X(PFNGLBINDFRAMEBUFFERPROC, BindFramebuffer)                                         \
  X(PFNGLBINDIMAGETEXTUREPROC, BindImageTexture)                                       \
  X(PFNGLBINDTEXTUREPROC, BindTexture)                                                 \
  X(PFNGLBINDVERTEXARRAYPROC, BindVertexArray)                                         \
  X(PFNGLBLENDFUNCPROC, BlendFunc)                                                     \
  X(PFNGLBUFFERDATAPROC, BufferData)                                                   \
  X(PFNGLCHECKFRAMEBUFFERSTATUSPROC, CheckFramebufferStatus)                           \
  X(PFNGLCLEARBUFFERFVPROC, ClearBufferfv)                                             \
  X(PFNGLCOMPILESHADERPROC, CompileShader)                                             \
  X(PFNGLCREATEPROGRAMPROC, CreateProgram)                                             \
  X(PFNGLCREATESHADERPROC, CreateShader)                                               \
  X(PFNGLDELETEBUFFERSPROC, DeleteBuffers)                                             \
  X(PFNGLDELETEFRAMEBUFFERSPROC, DeleteFramebuffers)                                   \
  X(PFNGLDELETEPROGRAMPROC, DeleteProgram)                                             \
  X(PFNGLDELETEQUERIESPROC, DeleteQueries)                                             \
  X(PFNGLDELETESAMPLERSPROC, DeleteSamplers)                                           \
  X(PFNGLDELETESHADERPROC, DeleteShader)                                               \
  X(PFNGLDELETETEXTURESPROC, DeleteTextures)                                           \
  X(PFNGLDELETEVERTEXARRAYSPROC, DeleteVertexArrays)                                   \
  X(PFNGLDISABLEPROC, Disable)                                                         \
  X(PFNGLDRAWBUFFERPROC, DrawBuffer)                                                   \
  X(PFNGLENABLEPROC, Enable)                                                           \
  X(PFNGLENDQUERYPROC, EndQuery)                                                       \
  X(PFNGLFINISHPROC, Finish)                                                           \
  X(PFNGLFRAMEBUFFERTEXTURE2DPROC, FramebufferTexture2D)                               \
  X(PFNGLGENBUFFERSPROC, GenBuffers)                                                   \
  X(PFNGLGENFRAMEBUFFERSPROC, GenFramebuffers)                                         \
  X(PFNGLGENQUERIESPROC, GenQueries)                                                   \
  X(PFNGLGENSAMPLERSPROC, GenSamplers)                                                 \
  X(PFNGLGENTEXTURESPROC, GenTextures)                                                 \
  X(PFNGLGENVERTEXARRAYSPROC, GenVertexArrays)                                         \
  X(PFNGLGETACTIVEUNIFORMPROC, GetActiveUniform)                                       \
  X(PFNGLGETERRORPROC, GetError)                                                       \
  X(PFNGLGETFRAMEBUFFERATTACHMENTPARAMETERIVPROC, GetFramebufferAttachmentParameteriv) \
  X(PFNGLGETINTEGERVPROC, GetIntegerv)                                                 \
  X(PFNGLGETPROGRAMBINARYPROC, GetProgramBinary)                                       \
  X(PFNGLGETPROGRAMINFOLOGPROC, GetProgramInfoLog)                                     \
  X(PFNGLGETPROGRAMIVPROC, GetProgramiv)                                               \
  X(PFNGLGETQUERYOBJECTIVPROC, GetQueryObjectiv)                                       \
  X(PFNGLGETQUERYOBJECTUI64VPROC, GetQueryObjectui64v)                                 \
  X(PFNGLGETSHADERINFOLOGPROC, GetShaderInfoLog)                                       \
  X(PFNGLGETSHADERIVPROC, GetShaderiv)                                                 \
  X(PFNGLGETSTRINGPROC, GetString)                                                     \
  X(PFNGLGETSTRINGIPROC, GetStringi)                                                   \
  X(PFNGLGETUNIFORMLOCATIONPROC, GetUniformLocation)                                   \
  X(PFNGLLINKPROGRAMPROC, LinkProgram)                                                 \
  X(PFNGLMEMORYBARRIERPROC, MemoryBarrier)                                             \
  X(PFNGLPROGRAMBINARYPROC, ProgramBinary)                                             \
  X(PFNGLPROGRAMPARAMETERIPROC, ProgramParameteri)                                     \
  X(PFNGLPROGRAMUNIFORM1IPROC, ProgramUniform1i)                                       \
  X(PFNGLSAMPLERPARAMETERIPROC, SamplerParameteri)                                     \
  X(PFNGLSHADERSOURCEPROC, ShaderSource)                                               \
  X(PFNGLTEXSTORAGE2DPROC, TexStorage2D)                                               \
  X(PFNGLTEXSTORAGE3DPROC, TexStorage3D)                                               \
  X(PFNGLTEXSUBIMAGE2DPROC, TexSubImage2D)                                             \
  X(PFNGLTEXSUBIMAGE3DPROC, TexSubImage3D)

struct GlFunctions {
#define HOST_GL_MEMBER(type, name) type name = nullptr;
  HOST_GL_FUNCTIONS(HOST_GL_MEMBER)
  // Null where the context cannot be asked.
  HOST_GL_MEMBER(PFNGLGETGRAPHICSRESETSTATUSPROC, GetGraphicsResetStatus)
#undef HOST_GL_MEMBER
};

// The functions of the open context.
extern GlFunctions gl;

// Fills `gl` through a look-up function; the name of one that is missing, or "" when all are there.
std::string load_gl_functions(void (*(*look_up)(const char*))());

}  // namespace host::gpu
