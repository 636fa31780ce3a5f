#pragma once

#include "host/base/memory_use.h"
#include "host/gpu/texture.h"

#include <cstdint>
#include <memory>

namespace host::gpu {

// Image textures, reused by exact size and kind of texel so that a frame after the first makes no new ones. A
// texture taken from the pool comes back by itself when its last TexturePtr goes; idle ones are kept while
// all together stay within a limit, the longest idle leave first, and as long as a frame or the next one asks
// for their size. Contents are undefined when taken.
// GL thread only; outlived by no texture: the pool's state lives on until the last one is back.
class TexturePool {
 public:
  // A rehearsal draws nothing that anyone looks at: its textures are of one texel, whatever size they say
  // and are counted by.
  enum class Purpose { drawing, rehearsal };

  // limit: bytes of textures in use and idle beyond which no idle one is kept; max_size: the
  // context's GL_MAX_TEXTURE_SIZE; use: whose Owner::device they are.
  TexturePool(uint64_t limit, int max_size, MemoryUse use = MemoryUse(), Purpose purpose = Purpose::drawing);

  // A texture of exactly this size, at least 1 x 1. Throws std::runtime_error that names the size
  // and the limit when the context cannot have one.
  TexturePtr acquire(int64_t width, int64_t height, Texel texel = Texel::real);

  // Deletes idle textures until at most this many bytes of them are left.
  void trim(uint64_t idle_bytes);

  // Deletes what has been idle since before the last call: sizes that come and go pile up nothing.
  void end_frame();

  uint64_t bytes_in_use() const;
  uint64_t bytes_idle() const;
  uint64_t created() const;  // GL textures made since the start: flat in a steady state

  // The GL sampler of its textures: nearest, edges clamped.
  uint32_t sampler() const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

// A lookup table of RGBA texels: width x height, or a cube when depth is above 1. Texels x fastest,
// then y, then z. `linear`: filtered between texels, otherwise nearest. Edges are clamped.
TexturePtr make_table(int width, int height, int depth, const float* rgba, bool linear);

}  // namespace host::gpu
