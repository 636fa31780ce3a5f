// The smallest host that touches pixels: makes a context, draws a square with a program of its own, blurs it
// with one of the library's filters, reads it back and writes it to a file.
// usage: minimal_host SHADER_DIR OUT.exr

#include <qv/gpu/draw.h>
#include <qv/gpu/gl/entry_points.h>
#include <qv/nodes/filter/ops.h>
#include <qv/transport/ring.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#define GL_GLEXT_PROTOTYPES
#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GL/glcorearb.h>
#include <OpenImageIO/imageio.h>

namespace {

namespace filter = qv::nodes::filter;
namespace transport = qv::transport;

constexpr int size = 64;

void need(bool good, const std::string& what) {
  if (!good) throw std::runtime_error(what);
}

// A context without a window, current on this thread, under which the library has what it needs of GL.
void make_context() {
  const EGLDisplay display =
      eglGetPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
  need(eglInitialize(display, nullptr, nullptr) && eglBindAPI(EGL_OPENGL_API), "no EGL display");
  const EGLint version[] = {EGL_CONTEXT_MAJOR_VERSION, 4, EGL_CONTEXT_MINOR_VERSION, 2, EGL_NONE};
  const EGLContext context = eglCreateContext(display, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, version);
  need(eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context), "no OpenGL 4.2 context");
  std::string error;
  need(qv::gpu::gl::load(&error) && transport::init(&error), error);
}

// A program's text, its #include "name" lines replaced by the files beside it.
std::string source(const std::filesystem::path& path) {
  std::ifstream file(path);
  need(file.is_open(), path.string() + ": cannot be read");
  std::string text;
  for (std::string line; std::getline(file, line);)
    text += line.starts_with("#include \"") ? source(path.parent_path() / line.substr(10, line.size() - 11))
                                            : line + "\n";
  return text;
}

// Compiles a fragment program over the whole target and tells the library its uniforms and samplers.
filter::Prog program(const std::string& vertex, const std::string& fragment) {
  filter::Prog made = {glCreateProgram(), 0, GL_TRIANGLES, 3, {}};
  for (const auto& [stage, text] : {std::pair(GL_VERTEX_SHADER, &vertex), {GL_FRAGMENT_SHADER, &fragment}}) {
    const GLuint shader = glCreateShader(static_cast<GLenum>(stage));
    const char* const pointer = text->c_str();
    glShaderSource(shader, 1, &pointer, nullptr);
    glCompileShader(shader);
    glAttachShader(made.program, shader);
  }
  glLinkProgram(made.program);
  GLint good = 0, uniforms = 0;
  char log[1024] = "";
  glGetProgramiv(made.program, GL_LINK_STATUS, &good);
  glGetProgramInfoLog(made.program, sizeof log, nullptr, log);
  need(good != 0, log);

  glGetProgramiv(made.program, GL_ACTIVE_UNIFORMS, &uniforms);
  for (GLuint i = 0; i < static_cast<GLuint>(uniforms); ++i) {
    char name[64] = "";
    GLenum type = 0;
    GLint count = 0;
    glGetActiveUniform(made.program, i, sizeof name, nullptr, &count, &type, name);
    const GLint location = glGetUniformLocation(made.program, name);
    const int floats = type == GL_FLOAT ? 1 : static_cast<int>(type - GL_FLOAT_VEC2) + 2;
    if (type != GL_SAMPLER_2D) {
      qv::gpu::program_add(made.program, name, {location, qv::gpu::uniform_vector, floats});
      continue;
    }
    const int unit = static_cast<int>(made.samplers.size());
    glProgramUniform1i(made.program, location, unit);
    made.samplers.emplace_back(name, unit);
  }
  // One triangle over the target, whose corners the vertex program knows by their numbers.
  const GLuint indices[] = {0, 1, 2};
  GLuint elements = 0;
  glGenVertexArrays(1, &made.vao);
  glBindVertexArray(made.vao);
  glGenBuffers(1, &elements);
  glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, elements);
  glBufferData(GL_ELEMENT_ARRAY_BUFFER, sizeof indices, indices, GL_STATIC_DRAW);
  return made;
}

// An image that can be drawn into and read.
filter::Tex image() {
  filter::Tex made{.w = size, .h = size};
  glGenTextures(1, &made.texture);
  glBindTexture(GL_TEXTURE_2D, made.texture);
  glTexStorage2D(GL_TEXTURE_2D, 1, GL_RGBA32F, size, size);
  glGenFramebuffers(1, &made.fbo);
  glBindFramebuffer(GL_FRAMEBUFFER, made.fbo);
  glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, made.texture, 0);
  return made;
}

void run(const std::filesystem::path& shaders, const std::string& file) {
  make_context();
  const std::string vertex = source(shaders / "fullscreen.vert");
  for (const std::string& frag : filter::op_frags("blur"))
    filter::program_set(frag, program(vertex, source(shaders / "filter" / frag)));

  // A square of 16 pixels, by a program of our own.
  const filter::Prog square = program(vertex, R"(#version 420 core
    uniform vec4 u_box;
    out vec4 o_color;
    void main() {
      o_color = vec4(all(greaterThan(gl_FragCoord.xy, u_box.xy)) && all(lessThan(gl_FragCoord.xy, u_box.zw)));
    })");
  const qv::gpu::Pending box{qv::gpu::uniform_info(square.program, "u_box")->location, 4, {24, 24, 40, 40}};
  const filter::Tex sharp = image(), soft = image();
  qv::gpu::draw(sharp.fbo, size, size, square.program, &box, 1, nullptr, 0, square.vao, square.mode, 3, 0);

  // size x, size y, kernel, limit, box: filter::operations() names them.
  const double params[] = {9, 9, filter::kernel_box, 0, 0, 0, size, size};
  need(filter::run_op("blur", {&sharp, 1}, params, soft, 0) == filter::run_drawn, "the blur was not drawn");

  // While the pixels are on their way the next frame could be drawn.
  std::vector<float> pixels(4 * size * size);
  const uint64_t ticket =
      transport::start(soft.fbo, 0, 0, 0, size, size, 4, pixels.data(), nullptr, 0, nullptr);
  transport::wait(ticket);
  need(ticket != 0 && !transport::failed(ticket), "the image was not read back");
  transport::close();

  const auto output = OIIO::ImageOutput::create(file);
  need(output && output->open(file, {size, size, 4, OIIO::TypeFloat}) &&
           output->write_image(OIIO::TypeFloat, pixels.data()) && output->close(),
       file + ": cannot be written");
}

}  // namespace

int main(int count, char** arguments) {
  try {
    need(count == 3, "usage: minimal_host SHADER_DIR OUT.exr");
    run(arguments[1], arguments[2]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "minimal_host: %s\n", error.what());
    return 1;
  }
}
