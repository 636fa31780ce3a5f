#include "tests/support/fake_egl/driver.h"

#include <algorithm>
#include <span>

namespace fake_egl {

namespace {

constexpr int largest_size = 65536;

// What is bound under the current context; enough of GL to know which texture an image belongs to.
thread_local unsigned bound_texture = 0;
thread_local unsigned bound_framebuffer = 0;

void BindFramebuffer(unsigned target, unsigned name) {
  log("glBindFramebuffer", target, name);
  bound_framebuffer = name;
}
void BindTexture(unsigned target, unsigned name) {
  log("glBindTexture", target, name);
  bound_texture = name;
}
template <Name name, size_t floats>
void uniform(unsigned program, int location, int count, const float* values) {
  log(name.value, program, location, count, std::span(values, floats));
}
template <Name name, size_t floats>
void matrix(unsigned program, int location, int count, unsigned char transpose, const float* values) {
  log(name.value, program, location, count, int{transpose}, std::span(values, floats));
}
unsigned GetError() {
  log("glGetError");
  return 0;
}

void TexImage2D(unsigned target, int level, int format, int w, int h, int border, unsigned pixel_format,
                unsigned type, const void* pixels) {
  log("glTexImage2D", target, level, static_cast<unsigned>(format), w, h, border, pixel_format, type, pixels);
  Object* const texture = object("texture", bound_texture);
  if (texture == nullptr) return complain("image of no texture");
  if (std::max(w, h) > largest_size) return complain("image larger than any texture");
  texture->bytes = static_cast<uint64_t>(w) * static_cast<uint64_t>(h) * 16;
}
void FramebufferTexture2D(unsigned target, unsigned attachment, unsigned texture_target, unsigned texture,
                          int level) {
  log("glFramebufferTexture2D", target, attachment, texture_target, texture, level);
  if (object("framebuffer", bound_framebuffer) == nullptr) complain("attachment to no framebuffer");
  if (object("texture", texture) == nullptr) complain("attachment of no texture");
}

const Provide provide{
    entry("glBindFramebuffer", BindFramebuffer),
    entry("glViewport", logged<"glViewport", int, int, int, int>),
    entry("glScissor", logged<"glScissor", int, int, int, int>),
    entry("glUseProgram", logged<"glUseProgram", unsigned>),
    entry("glActiveTexture", logged<"glActiveTexture", unsigned>),
    entry("glBindTexture", BindTexture),
    entry("glBindSampler", logged<"glBindSampler", unsigned, unsigned>),
    entry("glBindVertexArray", logged<"glBindVertexArray", unsigned>),
    entry("glDrawElementsInstancedBaseInstance",
          logged<"glDrawElementsInstancedBaseInstance", unsigned, int, unsigned, const void*, int, unsigned>),
    entry("glProgramUniform1fv", uniform<"glProgramUniform1fv", 1>),
    entry("glProgramUniform2fv", uniform<"glProgramUniform2fv", 2>),
    entry("glProgramUniform3fv", uniform<"glProgramUniform3fv", 3>),
    entry("glProgramUniform4fv", uniform<"glProgramUniform4fv", 4>),
    entry("glProgramUniformMatrix3fv", matrix<"glProgramUniformMatrix3fv", 9>),
    entry("glProgramUniformMatrix4fv", matrix<"glProgramUniformMatrix4fv", 16>),
    entry("glGetError", GetError),
    entry("glGenTextures", named<"glGenTextures", "texture">),
    entry("glDeleteTextures", deleted<"glDeleteTextures", "texture">),
    entry("glTexImage2D", TexImage2D),
    entry("glTexParameteri", logged<"glTexParameteri", unsigned, unsigned, int>),
    entry("glGenFramebuffers", named<"glGenFramebuffers", "framebuffer">),
    entry("glDeleteFramebuffers", deleted<"glDeleteFramebuffers", "framebuffer">),
    entry("glFramebufferTexture2D", FramebufferTexture2D),
    entry("glDrawBuffers", logged<"glDrawBuffers", int, const unsigned*>),
};

}  // namespace

}  // namespace fake_egl
