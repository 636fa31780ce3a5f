#include "host/gpu/debug.h"

#include "host/gpu/gl_functions.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace host::gpu {
namespace {

// Null where the context has no KHR_debug: some drivers hand out functions that they do not have.
struct Functions {
  PFNGLPUSHDEBUGGROUPPROC push = nullptr;
  PFNGLPOPDEBUGGROUPPROC pop = nullptr;
  PFNGLOBJECTLABELPROC label = nullptr;
} functions;

std::string group;  // the innermost that is open

bool has_khr_debug() {
  GLint count = 0;
  gl.GetIntegerv(GL_NUM_EXTENSIONS, &count);
  for (GLint i = 0; i < count; ++i) {
    const auto* name = reinterpret_cast<const char*>(gl.GetStringi(GL_EXTENSIONS, static_cast<GLuint>(i)));
    if (name && std::string_view(name) == "GL_KHR_debug") return true;
  }
  return false;
}

// A name as GL takes it: drivers need not take more than 256 bytes with the one that ends it.
std::pair<GLsizei, const char*> text(std::string_view name) {
  return {static_cast<GLsizei>(std::min<size_t>(name.size(), 255)), name.data()};
}

std::string error_name(GLenum error) {
  switch (error) {
    case GL_INVALID_ENUM:
      return "invalid enum";
    case GL_INVALID_VALUE:
      return "invalid value";
    case GL_INVALID_OPERATION:
      return "invalid operation";
    case GL_INVALID_FRAMEBUFFER_OPERATION:
      return "invalid framebuffer operation";
    case GL_OUT_OF_MEMORY:
      return "out of memory";
    default:
      return "error " + std::to_string(error);
  }
}

}  // namespace

void load_debug(void (*(*look_up)(const char*))()) {
  functions = {};
  if (!has_khr_debug()) return;
  functions.push = reinterpret_cast<PFNGLPUSHDEBUGGROUPPROC>(look_up("glPushDebugGroup"));
  functions.pop = reinterpret_cast<PFNGLPOPDEBUGGROUPPROC>(look_up("glPopDebugGroup"));
  functions.label = reinterpret_cast<PFNGLOBJECTLABELPROC>(look_up("glObjectLabel"));
  if (!functions.push || !functions.pop || !functions.label) functions = {};
}

DebugGroup::DebugGroup(std::string_view name) : outer_(std::exchange(group, std::string(name))) {
  const auto [length, bytes] = text(group);
  if (functions.push) functions.push(GL_DEBUG_SOURCE_APPLICATION, 0, length, bytes);
}

DebugGroup::~DebugGroup() {
  group = std::move(outer_);
  if (functions.pop) functions.pop();
}

void label_texture(uint32_t texture) {
  const auto [length, bytes] = text(group);
  if (functions.label) functions.label(GL_TEXTURE, texture, length, bytes);
}

void label_program(uint32_t program, std::string_view name) {
  const auto [length, bytes] = text(name);
  if (functions.label) functions.label(GL_PROGRAM, program, length, bytes);
}

void throw_errors() {
  std::string found;
  // Bounded, because a context that is gone may report errors for ever.
  for (int i = 0; i < 16; ++i) {
    const GLenum error = gl.GetError();
    if (error == GL_NO_ERROR) break;
    found += (found.empty() ? "OpenGL: " : ", ") + error_name(error);
  }
  if (!found.empty()) throw std::runtime_error(found);
}

}  // namespace host::gpu
