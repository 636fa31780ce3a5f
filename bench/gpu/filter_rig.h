#pragma once

#include <qv/nodes/filter/ops.h>

#include "bench/gpu/gl_context.h"
#include "tests/support/picture.h"

#include <map>
#include <span>
#include <string>
#include <vector>

namespace support {

// Runs the library's filters on a real driver: compiles the programs an operation asks for, reflects
// and registers them, and moves pictures to textures and back. Lives as long as the process.
// Throws std::runtime_error with the file's name where a program does not compile.
class FilterRig {
 public:
  // Needs GlContext::get() to have given a context; loads the library's entry points for it.
  static FilterRig& get();

  // Runs `op`, whose programs are compiled at its first use, and returns run_op's result; `out`
  // keeps its size and, when something was drawn, receives the picture.
  int run(const std::string& op, std::span<const Picture> inputs, std::span<const double> params,
          Picture& out);

  // The pieces of run, for timing them apart. Textures belong to the caller.
  void prepare(const std::string& op);
  qv::nodes::filter::Tex upload(const Picture& picture) const;
  Picture download(const qv::nodes::filter::Tex& tex) const;
  void release(const qv::nodes::filter::Tex& tex) const;
  void finish() const {
    gl_.Finish();
  }

 private:
  explicit FilterRig(const GlContext& gl);
  void add_program(const std::string& file);

  const GlContext& gl_;
  unsigned vao_ = 0;
};

// The text of a file in shaders/, its #include "name" lines replaced by what they name.
std::string shader_source(const std::string& path);

}  // namespace support
