#include <qv/gpu/gl/dynamic_loader.h>
#include <qv/gpu/gl/entry_points.h>
#include <qv/gpu/gl/proc_address.h>

namespace qv::gpu::gl {

void (*BindFramebuffer)(unsigned, unsigned) = nullptr;
void (*Viewport)(int, int, int, int) = nullptr;
void (*Scissor)(int, int, int, int) = nullptr;
void (*UseProgram)(unsigned) = nullptr;
void (*ActiveTexture)(unsigned) = nullptr;
void (*BindTexture)(unsigned, unsigned) = nullptr;
void (*BindSampler)(unsigned, unsigned) = nullptr;
void (*BindVertexArray)(unsigned) = nullptr;
void (*DrawElementsInstancedBaseInstance)(unsigned, int, unsigned, const void*, int, unsigned) = nullptr;
void (*ProgramUniform1fv)(unsigned, int, int, const float*) = nullptr;
void (*ProgramUniform2fv)(unsigned, int, int, const float*) = nullptr;
void (*ProgramUniform3fv)(unsigned, int, int, const float*) = nullptr;
void (*ProgramUniform4fv)(unsigned, int, int, const float*) = nullptr;
void (*ProgramUniformMatrix3fv)(unsigned, int, int, unsigned char, const float*) = nullptr;
void (*ProgramUniformMatrix4fv)(unsigned, int, int, unsigned char, const float*) = nullptr;
unsigned (*GetError)() = nullptr;

namespace {

bool all_found = false;
void* table_context = nullptr;

// The two EGL functions, both null unless both were found: one test then covers the pair.
struct Egl {
  Proc (*get_proc_address)(const char* name) = nullptr;
  void* (*get_current_context)() = nullptr;
};

Egl open_egl() {
  void* const library = dlopen("libEGL.so.1", RTLD_LAZY | RTLD_LOCAL);
  // A null handle would make dlsym search the whole program instead.
  if (library == nullptr) return {};
  Egl egl;
  egl.get_proc_address = reinterpret_cast<Proc (*)(const char*)>(dlsym(library, "eglGetProcAddress"));
  egl.get_current_context = reinterpret_cast<void* (*)()>(dlsym(library, "eglGetCurrentContext"));
  if (egl.get_proc_address == nullptr || egl.get_current_context == nullptr) return {};
  return egl;
}

const Egl& egl() {
  static const Egl functions = open_egl();
  return functions;
}

}  // namespace

bool has_egl() {
  return egl().get_proc_address != nullptr;
}

Proc proc_address(const char* name) {
  return has_egl() ? egl().get_proc_address(name) : nullptr;
}

void* current_context() {
  return has_egl() ? egl().get_current_context() : nullptr;
}

bool load(std::string* error) {
  if (!has_egl()) {
    if (error != nullptr) *error = "libEGL.so.1 / eglGetProcAddress not available";
    return false;
  }
  void* const context = current_context();
  if (context == nullptr) {
    if (error != nullptr) *error = "no current EGL context on this thread";
    return false;
  }
  const char* missing = nullptr;
  const auto look_up = [&](auto& entry, const char* name) {
    if (!fetch(entry, name)) missing = name;
  };
  look_up(BindFramebuffer, "glBindFramebuffer");
  look_up(Viewport, "glViewport");
  look_up(Scissor, "glScissor");
  look_up(UseProgram, "glUseProgram");
  look_up(ActiveTexture, "glActiveTexture");
  look_up(BindTexture, "glBindTexture");
  look_up(BindSampler, "glBindSampler");
  look_up(BindVertexArray, "glBindVertexArray");
  look_up(DrawElementsInstancedBaseInstance, "glDrawElementsInstancedBaseInstance");
  look_up(ProgramUniform1fv, "glProgramUniform1fv");
  look_up(ProgramUniform2fv, "glProgramUniform2fv");
  look_up(ProgramUniform3fv, "glProgramUniform3fv");
  look_up(ProgramUniform4fv, "glProgramUniform4fv");
  look_up(ProgramUniformMatrix3fv, "glProgramUniformMatrix3fv");
  look_up(ProgramUniformMatrix4fv, "glProgramUniformMatrix4fv");
  look_up(GetError, "glGetError");

  all_found = missing == nullptr;
  table_context = all_found ? context : nullptr;
  // Last, because a text may find no memory and the table must be known for what it is.
  if (!all_found && error != nullptr)
    *error = std::string("OpenGL entry point ") + missing + " not available";
  return all_found;
}

bool loaded() {
  return all_found;
}

void* loaded_context() {
  return table_context;
}

}  // namespace qv::gpu::gl
