#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace host::programs {

// A fragment program that is missing or does not compile. The text names the file, after its
// #include lines were spliced in, with the driver's log.
class ShaderError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A linked program that covers its target: shaders/fullscreen.vert with one fragment program. Its
// uniforms are registered with the library, so that they are set by name.
struct Program {
  uint32_t name = 0;                                  // GL program
  std::vector<std::pair<std::string, int>> samplers;  // sampler uniform -> texture unit
};

// Fragment programs by file name ("merge.frag"), compiled at first use and kept. The name alone
// decides, whichever folder of shaders/ holds it. A #include "name.glsl" line is replaced by the file
// of that name, once a program: of several, that in the folder of the including file, else that in
// the root.
// GL thread only; destruction deletes the programs and forgets them in the library's registries.
class ShaderLibrary {
 public:
  // Searches `root` and its sub-folders. What is compiled is kept in the folder `kept` for later runs,
  // and what lies there is not compiled (program_binaries.h); "": nothing is.
  explicit ShaderLibrary(const std::filesystem::path& root, const std::filesystem::path& kept = {});
  ~ShaderLibrary();
  ShaderLibrary(const ShaderLibrary&) = delete;
  ShaderLibrary& operator=(const ShaderLibrary&) = delete;

  // Where shaders lie, from wherever the program was started: the environment's QUORVEL_SHADERS, the
  // folder installed beside this executable, the source tree that it was built from. Throws
  // ShaderError that lists the folders looked at.
  static std::filesystem::path default_root();

  // The program of a file. The reference holds as long as the library. Throws ShaderError.
  // defines: lines such as "#define OPERATION 22", put in front of the text; each choice of them is
  // a program of its own, in which branches that hang on them cost nothing.
  const Program& get(std::string_view file, std::string_view defines = {});

  // A program from text made at run time, under a name that stands for its content: only the first
  // call with a name asks for the text, which may have #include lines. Throws ShaderError.
  const Program& get_generated(std::string_view name, const std::function<std::string()>& source);

  // The text of a file with its #include lines spliced. Throws ShaderError.
  std::string source(std::string_view file) const;

  // How the programs came to be.
  struct Made {
    int64_t compiled = 0;
    int64_t restored = 0;  // from what an earlier run kept
  };
  Made made() const;

  // Before the first filter: blurs give eight pixels a fragment from now on (gpu::WideDraws), the same
  // ones, which spares a driver that draws in software half of their time.
  void widen_blurs();

  // Compiles what the filter operation needs and hands it to the filter layer, once an operation.
  void prepare_filter(std::string_view operation);

  // What every full-target draw is made of: a vertex array with an element buffer.
  uint32_t vertex_array() const;
  uint32_t draw_mode() const;
  int index_count() const;

 private:
  const Program& filter_program(std::string_view file);

  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace host::programs
