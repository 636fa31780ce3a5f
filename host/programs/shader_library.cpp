#include "host/programs/shader_library.h"

#include <qv/gpu/registry.h>
#include <qv/nodes/filter/ops.h>

#include "host/gpu/debug.h"
#include "host/gpu/gl_functions.h"
#include "host/gpu/wide_draws.h"
#include "host/programs/program_binaries.h"
#include "host/programs/shader_text.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <map>
#include <optional>
#include <system_error>
#include <vector>

#include <dlfcn.h>

namespace host::programs {
namespace {

namespace fs = std::filesystem;
namespace filter = qv::nodes::filter;

using InfoLog = std::array<char, 8192>;

constexpr const char* vertex_file = "fullscreen.vert";

uint32_t compile(GLenum stage, const std::string& text, const std::string& name) {
  const uint32_t shader = gpu::gl.CreateShader(stage);
  const char* pointer = text.c_str();
  gpu::gl.ShaderSource(shader, 1, &pointer, nullptr);
  gpu::gl.CompileShader(shader);
  int good = 0;
  gpu::gl.GetShaderiv(shader, GL_COMPILE_STATUS, &good);
  if (good) return shader;
  InfoLog log{};
  gpu::gl.GetShaderInfoLog(shader, static_cast<int>(log.size()), nullptr, log.data());
  gpu::gl.DeleteShader(shader);
  throw ShaderError(name + ": does not compile:\n" + log.data());
}

void link(uint32_t program, uint32_t vertex, uint32_t fragment, const std::string& name) {
  gpu::gl.AttachShader(program, vertex);
  gpu::gl.AttachShader(program, fragment);
  gpu::gl.LinkProgram(program);
  int good = 0;
  gpu::gl.GetProgramiv(program, GL_LINK_STATUS, &good);
  if (good) return;
  InfoLog log{};
  gpu::gl.GetProgramInfoLog(program, static_cast<int>(log.size()), nullptr, log.data());
  throw ShaderError(name + ": does not link:\n" + log.data());
}

// A text with more lines behind its first, which says the version.
std::string with_defines(const std::string& text, std::string_view defines) {
  const size_t end = text.find('\n') + 1;  // 0 for a text of one line: it has no version
  // Every image is read through a sampler of the texture pool.
  return text.substr(0, end) + "#define NEAREST_SAMPLERS\n" + std::string(defines) + text.substr(end);
}

// The passes of a blur in which a fragment may give several pixels, and the lines that make it.
struct WidePass {
  std::string_view file;
  gpu::WideDraws::Shape shape;
};
constexpr std::array<WidePass, 2> wide_passes = {{{"blur_h.frag", {8, 1, 1}}, {"blur_v.frag", {1, 8, 4}}}};
constexpr std::string_view wide_defines = "#define PIXELS 8\n#define FOLD 4\n";

bool is_sampler(GLenum type) {
  return type == GL_SAMPLER_2D || type == GL_SAMPLER_3D;
}

// How the library's registry describes a uniform of this GL type.
qv::gpu::UniformInfo describe_uniform(GLenum type, int32_t location) {
  switch (type) {
    case GL_FLOAT:
      return {location, qv::gpu::uniform_float, 1};
    case GL_FLOAT_VEC2:
      return {location, qv::gpu::uniform_vector, 2};
    case GL_FLOAT_VEC3:
      return {location, qv::gpu::uniform_vector, 3};
    case GL_FLOAT_VEC4:
      return {location, qv::gpu::uniform_vector, 4};
    case GL_FLOAT_MAT3:
      return {location, qv::gpu::uniform_matrix3, 9};
    case GL_FLOAT_MAT4:
      return {location, qv::gpu::uniform_matrix4, 16};
    default:
      return {location, qv::gpu::uniform_other, 1};
  }
}

// Asks GL for the program's uniforms: samplers get texture units, the rest goes into the registry.
void reflect(Program& program) {
  int count = 0;
  gpu::gl.GetProgramiv(program.name, GL_ACTIVE_UNIFORMS, &count);
  for (int i = 0; i < count; ++i) {
    std::array<char, 256> name{};
    int size = 0;
    GLenum type = 0;
    gpu::gl.GetActiveUniform(program.name, static_cast<GLuint>(i), static_cast<int>(name.size()), nullptr,
                             &size, &type, name.data());
    const int location = gpu::gl.GetUniformLocation(program.name, name.data());
    if (is_sampler(type)) {
      const int unit = static_cast<int>(program.samplers.size());
      gpu::gl.ProgramUniform1i(program.name, location, unit);
      program.samplers.emplace_back(name.data(), unit);
    } else {
      qv::gpu::program_add(program.name, name.data(), describe_uniform(type, location));
    }
  }
}

fs::path folder_of_executable() {
  std::error_code error;
  const fs::path executable = fs::read_symlink("/proc/self/exe", error);
  return error ? fs::path() : executable.parent_path();
}

// Of the shared object that this code is a part of, which is the Python module; "" in a program.
fs::path folder_of_module() {
  static const char here = 0;
  Dl_info found{};
  if (dladdr(&here, &found) == 0 || !found.dli_fname) return {};
  const fs::path file = found.dli_fname;
  return file.filename().string().find(".so") == std::string::npos ? fs::path() : file.parent_path();
}

// Where an installed copy has its fragment programs. A module does not look beside the program that loads it:
// what lies there may be another version's.
std::vector<fs::path> installed_roots() {
  const fs::path module = folder_of_module();
  if (!module.empty()) return {module / "shaders", module / QUORVEL_SHADERS_FROM_MODULE};
  const fs::path executable = folder_of_executable();
  if (executable.empty()) return {};
  return {executable / QUORVEL_SHADERS_FROM_BIN};
}

}  // namespace

struct ShaderLibrary::State {
  State(const fs::path& root, const fs::path& kept)
      : texts(root), vertex_text(texts.source(vertex_file)), binaries(kept) {}

  ShaderTexts texts;
  std::string vertex_text;
  ProgramBinaries binaries;
  Made made;
  std::map<std::string, Program, std::less<>> programs;
  uint32_t vertex_shader = 0;  // 0 until a program is compiled
  uint32_t vertex_array = 0;
  uint32_t elements = 0;
  std::optional<gpu::WideDraws> wide_draws;

  const Program& build(std::string_view name, const std::string& text, std::string_view defines = {}) {
    const std::string label(name);
    Program program;
    program.name = gpu::gl.CreateProgram();
    try {
      make(program.name, with_defines(text, defines), label);
    } catch (...) {
      gpu::gl.DeleteProgram(program.name);
      throw;
    }
    gpu::label_program(program.name, label);
    reflect(program);
    return programs.emplace(label, std::move(program)).first->second;
  }

  void make(uint32_t program, const std::string& text, const std::string& label) {
    if (binaries.restore(program, vertex_text, text)) {
      ++made.restored;
      return;
    }
    if (vertex_shader == 0) vertex_shader = compile(GL_VERTEX_SHADER, vertex_text, vertex_file);
    const uint32_t fragment = compile(GL_FRAGMENT_SHADER, text, label);
    binaries.announce(program);
    try {
      link(program, vertex_shader, fragment, label);
    } catch (...) {
      gpu::gl.DeleteShader(fragment);
      throw;
    }
    gpu::gl.DeleteShader(fragment);
    ++made.compiled;
    binaries.keep(program, vertex_text, text);
  }
};

ShaderLibrary::ShaderLibrary(const fs::path& root, const fs::path& kept)
    : state_(std::make_unique<State>(root, kept)) {
  constexpr std::array<uint32_t, 3> indices = {0, 1, 2};
  gpu::gl.GenVertexArrays(1, &state_->vertex_array);
  gpu::gl.BindVertexArray(state_->vertex_array);
  gpu::gl.GenBuffers(1, &state_->elements);
  gpu::gl.BindBuffer(GL_ELEMENT_ARRAY_BUFFER, state_->elements);
  gpu::gl.BufferData(GL_ELEMENT_ARRAY_BUFFER, sizeof indices, indices.data(), GL_STATIC_DRAW);
  gpu::gl.BindVertexArray(0);
}

ShaderLibrary::~ShaderLibrary() {
  filter::programs_clear();
  for (const auto& [file, program] : state_->programs) {
    qv::gpu::program_forget(program.name);
    gpu::gl.DeleteProgram(program.name);
  }
  gpu::gl.DeleteShader(state_->vertex_shader);
  gpu::gl.DeleteVertexArrays(1, &state_->vertex_array);
  gpu::gl.DeleteBuffers(1, &state_->elements);
}

fs::path ShaderLibrary::default_root() {
  std::vector<fs::path> candidates;
  if (const char* given = std::getenv("QUORVEL_SHADERS")) candidates.emplace_back(given);
  for (const fs::path& root : installed_roots()) candidates.push_back(root.lexically_normal());
  candidates.emplace_back(QUORVEL_SOURCE_SHADERS);
  std::string looked;
  for (const fs::path& candidate : candidates) {
    std::error_code error;
    if (fs::is_regular_file(candidate / "fullscreen.vert", error)) return candidate;
    looked += "\n  " + candidate.string();
  }
  throw ShaderError("no fragment programs found; looked for fullscreen.vert in" + looked);
}

const Program& ShaderLibrary::get(std::string_view file, std::string_view defines) {
  std::string name(file);
  if (!defines.empty()) name.append("\n").append(defines);
  const auto known = state_->programs.find(name);
  return known != state_->programs.end() ? known->second : state_->build(name, source(file), defines);
}

const Program& ShaderLibrary::get_generated(std::string_view name,
                                            const std::function<std::string()>& source) {
  const auto known = state_->programs.find(name);
  if (known != state_->programs.end()) return known->second;
  return state_->build(name, state_->texts.splice(source(), std::string(name)));
}

ShaderLibrary::Made ShaderLibrary::made() const {
  return state_->made;
}

std::string ShaderLibrary::source(std::string_view file) const {
  return state_->texts.source(file);
}

void ShaderLibrary::widen_blurs() {
  state_->wide_draws.emplace();
}

const Program& ShaderLibrary::filter_program(std::string_view file) {
  const auto* const wide = std::find_if(wide_passes.begin(), wide_passes.end(),
                                        [file](const WidePass& pass) { return pass.file == file; });
  if (!state_->wide_draws || wide == wide_passes.end()) return get(file);
  const Program& program = get(file, wide_defines);
  state_->wide_draws->add(program.name, wide->shape);
  return program;
}

void ShaderLibrary::prepare_filter(std::string_view operation) {
  for (const std::string& file : filter::op_frags(operation)) {
    if (filter::program_get(file)) continue;
    const Program& program = filter_program(file);
    filter::Prog entry;
    entry.program = program.name;
    entry.vao = vertex_array();
    entry.mode = draw_mode();
    entry.count = index_count();
    for (const auto& [sampler, unit] : program.samplers) entry.samplers.emplace_back(sampler, unit);
    filter::program_set(file, entry);
  }
}

uint32_t ShaderLibrary::vertex_array() const {
  return state_->vertex_array;
}

uint32_t ShaderLibrary::draw_mode() const {
  return GL_TRIANGLES;
}

int ShaderLibrary::index_count() const {
  return 3;
}

}  // namespace host::programs
