#pragma once

#include "host/base/memory_use.h"
#include "host/decode/sources.h"
#include "host/gpu/texture_pool.h"
#include "host/node/image.h"
#include "host/programs/shader_library.h"

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace host::node {

// A uniform by name: 1 to 4 floats, or 9 or 16 for a matrix in column-major order. A name that the
// program does not have is passed over, as is one of another size.
struct Uniform {
  std::string_view name;
  int count = 1;
  std::array<float, 16> values{};

  Uniform(std::string_view name, std::span<const double> values);
  Uniform(std::string_view name, std::initializer_list<double> values);
  Uniform(std::string_view name, double value);
};

// What a sampler reads: an image, or a table made by make_table.
struct Input {
  std::string_view name;
  const Image* image = nullptr;
  gpu::TexturePtr table;

  Input(std::string_view sampler, const Image& read) : name(sampler), image(&read) {}
  Input(std::string_view sampler, gpu::TexturePtr read) : name(sampler), table(std::move(read)) {}
};

// What a draw does with what the target holds already. `add` sums weighted images one draw at a time:
// clear the target with solid() first, and give the weight as a uniform.
enum class Blend : uint8_t { replace, add };

// Where the calls of a context spent the GL thread's time, in milliseconds.
struct ContextTimes {
  double wait_decode_ms = 0;  // for pixels that were not decoded yet
  double upload_ms = 0;
};

// What a node renders with. Handed to Operation::render and alive only during the call.
// GL thread only. Failures are exceptions: ShaderError, or std::runtime_error with a text that the
// renderer completes with node and frame.
class RenderContext {
 public:
  using Fetch = std::function<decode::Pixels(const plates::Source&)>;

  // fetch: as Decoder::take, but that pixels may be null in a rehearsal; use: whose Owner::device the
  // textures between the passes of filters are, and whose Owner::decoded what stays as it was decoded.
  RenderContext(programs::ShaderLibrary& shaders, gpu::TexturePool& pool, Fetch fetch,
                MemoryUse use = MemoryUse());
  RenderContext(programs::ShaderLibrary& shaders, gpu::TexturePool& pool, decode::Decoder& decoder,
                MemoryUse use = MemoryUse());
  ~RenderContext();
  RenderContext(const RenderContext&) = delete;
  RenderContext& operator=(const RenderContext&) = delete;

  // A new image with a texture of the window's size, contents undefined: draw into all of it. An
  // empty window gives an image without a texture, which every draw passes over.
  Image make(const Extent& extent);

  // A new image of one colour.
  Image solid(const Extent& extent, const std::array<float, 4>& rgba);

  // A new image with these pixels, whose window has the size of the extent's; undefined ones in a rehearsal.
  // Halves stay halves.
  Image upload(const Extent& extent, const decode::Pixels& pixels);

  // The same, but that the pixels stay where they are while nobody draws with the image.
  Image decoded(const Extent& extent, decode::Pixels pixels);

  // Whether somebody draws with what is rendered next; true at first.
  void expect_draws(bool draws) {
    draws_ = draws;
  }

  // Draws a program over all of the target. Beside the uniforms given it sets, where the program has
  // them (include "image.glsl" for the functions that use them):
  //   vec4 u_target           (x0, y1, width, height) of the target's window: the pixel centre's knob
  //                           coordinates are (u_target.x + gl_FragCoord.x, u_target.y - gl_FragCoord.y)
  //   vec4 <sampler>_window   (dx, dy, width, height) for every image: the texel that lies under the
  //                           target's texel t is t + (dx, dy), transparent black outside its size
  // An image without a texture reads as transparent black. At most 16 inputs.
  void draw(std::string_view program_file, const Image& target, std::span<const Uniform> uniforms,
            std::span<const Input> inputs, Blend blend = Blend::replace);
  void draw(const programs::Program& program, const Image& target, std::span<const Uniform> uniforms,
            std::span<const Input> inputs, Blend blend = Blend::replace);

  // The image laid out anew in another window: cut, or extended by transparent black, or (`repeat`)
  // by its edge pixels. The same image when the window is the same.
  Image windowed(const Image& image, const Box& window, bool repeat = false);

  // Runs an operation of the filter layer over images that share one window, into a target of the
  // first one's window. False when there was nothing to draw: the result is the first input then.
  bool filter(std::string_view operation, std::span<const Image> inputs, std::span<const double> params,
              const Image& target);

  // Decoded pixels of a file that the operation named in source(). Throws std::runtime_error that
  // names the path.
  decode::Pixels fetch(const plates::Source& source);

  // The table of a name that stands for its content: made at the first call, kept until the render ends.
  gpu::TexturePtr table(const std::string& name, const std::function<gpu::TexturePtr()>& make);

  programs::ShaderLibrary& shaders();

  // Bytes of the textures between the passes of filters, and deleting those that wait for their next use
  // until at most this many are left.
  uint64_t scratch_bytes() const {
    return scratch_.bytes();
  }
  void trim_scratch(uint64_t most);
  // The same of those that have waited since before the last call.
  void end_frame();

  // Since it was made.
  const ContextTimes& times() const {
    return times_;
  }

 private:
  Image make(const Extent& extent, gpu::Texel texel);

  programs::ShaderLibrary& shaders_;
  gpu::TexturePool& pool_;
  Fetch fetch_;
  MemoryUse use_;
  Account scratch_;
  bool draws_ = true;
  ContextTimes times_;
  std::map<std::string, gpu::TexturePtr> tables_;
  gpu::TexturePtr nothing_;  // one transparent texel, read where there is no image
};

}  // namespace host::node
