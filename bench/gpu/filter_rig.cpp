#include "bench/gpu/filter_rig.h"

#include <qv/gpu/gl/entry_points.h>
#include <qv/gpu/registry.h>

#include <array>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace support {

namespace filter = qv::nodes::filter;

std::string shader_source(const std::string& path) {
  std::ifstream file(std::string(QV_SHADER_DIR) + "/" + path);
  if (!file) throw std::runtime_error(path + ": cannot be read");
  std::ostringstream text;
  for (std::string line; std::getline(file, line);) {
    const bool include = line.rfind("#include \"", 0) == 0;
    text << (include ? shader_source(path.substr(0, path.rfind('/') + 1) + line.substr(10, line.size() - 11))
                     : line)
         << '\n';
  }
  return text.str();
}

namespace {

unsigned compile(const GlContext& gl, const std::string& path, unsigned kind) {
  const std::string text = shader_source(path);
  const char* pointer = text.c_str();
  const unsigned shader = gl.CreateShader(kind);
  gl.ShaderSource(shader, 1, &pointer, nullptr);
  gl.CompileShader(shader);
  std::array<char, 4096> log{};
  int good = 0;
  gl.GetShaderiv(shader, GL_COMPILE_STATUS, &good);
  gl.GetShaderInfoLog(shader, static_cast<int>(log.size()), nullptr, log.data());
  if (!good || log[0] != 0) throw std::runtime_error(path + ": " + log.data());
  return shader;
}

int floats_of(unsigned type) {
  switch (type) {
    case GL_FLOAT:
      return 1;
    case GL_FLOAT_VEC2:
      return 2;
    case GL_FLOAT_VEC3:
      return 3;
    case GL_FLOAT_VEC4:
      return 4;
    default:
      return 0;
  }
}

}  // namespace

FilterRig& FilterRig::get() {
  static FilterRig rig(*GlContext::get(nullptr));
  return rig;
}

FilterRig::FilterRig(const GlContext& gl) : gl_(gl) {
  std::string error;
  if (!qv::gpu::gl::load(&error)) throw std::runtime_error(error);
  const unsigned indices[3] = {0, 1, 2};
  unsigned elements = 0;
  gl_.GenVertexArrays(1, &vao_);
  gl_.BindVertexArray(vao_);
  gl_.GenBuffers(1, &elements);
  gl_.BindBuffer(GL_ELEMENT_ARRAY_BUFFER, elements);
  gl_.BufferData(GL_ELEMENT_ARRAY_BUFFER, sizeof indices, indices, GL_STATIC_DRAW);
  gl_.BindVertexArray(0);
}

void FilterRig::add_program(const std::string& file) {
  filter::Prog prog{gl_.CreateProgram(), vao_, GL_TRIANGLES, 3, {}};
  const unsigned shaders[2] = {compile(gl_, "fullscreen.vert", GL_VERTEX_SHADER),
                               compile(gl_, "filter/" + file, GL_FRAGMENT_SHADER)};
  for (const unsigned shader : shaders) gl_.AttachShader(prog.program, shader);
  gl_.LinkProgram(prog.program);
  for (const unsigned shader : shaders) gl_.DeleteShader(shader);
  int good = 0;
  gl_.GetProgramiv(prog.program, GL_LINK_STATUS, &good);
  if (!good) throw std::runtime_error(file + ": does not link");

  int count = 0;
  gl_.GetProgramiv(prog.program, GL_ACTIVE_UNIFORMS, &count);
  for (int i = 0; i < count; ++i) {
    std::array<char, 64> name{};
    int size = 0;
    unsigned type = 0;
    gl_.GetActiveUniform(prog.program, static_cast<unsigned>(i), static_cast<int>(name.size()), nullptr,
                         &size, &type, name.data());
    const int location = gl_.GetUniformLocation(prog.program, name.data());
    if (type == GL_SAMPLER_2D) {
      const int unit = static_cast<int>(prog.samplers.size());
      gl_.ProgramUniform1i(prog.program, location, unit);
      prog.samplers.emplace_back(name.data(), unit);
    } else if (const int floats = floats_of(type)) {
      qv::gpu::program_add(prog.program, name.data(), {location, floats == 1 ? 0 : 1, floats});
    } else {
      throw std::runtime_error(file + ": " + name.data() + " is of a type that cannot be uploaded");
    }
  }
  filter::program_set(file, prog);
}

void FilterRig::prepare(const std::string& op) {
  for (const std::string& file : filter::op_frags(op))
    if (!filter::program_get(file)) add_program(file);
}

filter::Tex FilterRig::upload(const Picture& picture) const {
  filter::Tex tex;
  tex.w = picture.w;
  tex.h = picture.h;
  gl_.GenTextures(1, &tex.texture);
  gl_.BindTexture(GL_TEXTURE_2D, tex.texture);
  gl_.TexImage2D(GL_TEXTURE_2D, 0, GL_RGBA32F, picture.w, picture.h, 0, GL_RGBA, GL_FLOAT,
                 picture.rgba.data());
  gl_.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAX_LEVEL, 0);
  gl_.TexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
  gl_.GenFramebuffers(1, &tex.fbo);
  gl_.BindFramebuffer(GL_FRAMEBUFFER, tex.fbo);
  gl_.FramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, tex.texture, 0);
  gl_.BindFramebuffer(GL_FRAMEBUFFER, 0);
  return tex;
}

Picture FilterRig::download(const filter::Tex& tex) const {
  Picture result(tex.w, tex.h);
  gl_.BindFramebuffer(GL_FRAMEBUFFER, tex.fbo);
  gl_.ReadPixels(0, 0, tex.w, tex.h, GL_RGBA, GL_FLOAT, result.rgba.data());
  gl_.BindFramebuffer(GL_FRAMEBUFFER, 0);
  return result;
}

void FilterRig::release(const filter::Tex& tex) const {
  gl_.DeleteFramebuffers(1, &tex.fbo);
  gl_.DeleteTextures(1, &tex.texture);
}

int FilterRig::run(const std::string& op, std::span<const Picture> inputs, std::span<const double> params,
                   Picture& out) {
  prepare(op);
  std::vector<filter::Tex> textures;
  for (const Picture& input : inputs) textures.push_back(upload(input));
  const filter::Tex target = upload(out);
  const int result = filter::run_op(op, textures, params, target, 0);
  if (result == 1) out = download(target);
  if (const unsigned error = gl_.GetError())
    throw std::runtime_error(op + ": GL error " + std::to_string(error));
  for (const filter::Tex& each : textures) release(each);
  release(target);
  return result;
}

}  // namespace support
