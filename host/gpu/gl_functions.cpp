#include "host/gpu/gl_functions.h"

namespace host::gpu {

GlFunctions gl;

std::string load_gl_functions(void (*(*look_up)(const char*))()) {
  std::string missing;
#define HOST_GL_FETCH(type, name)                        \
  gl.name = reinterpret_cast<type>(look_up("gl" #name)); \
  if (!gl.name && missing.empty()) missing = "gl" #name;
  HOST_GL_FUNCTIONS(HOST_GL_FETCH)
#undef HOST_GL_FETCH
  return missing;
}

}  // namespace host::gpu
