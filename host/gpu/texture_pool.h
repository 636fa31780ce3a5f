#pragma once

#include "host/gpu/texture.h"

#include <cstdint>
#include <memory>

namespace host::gpu {

// Image textures, reused by exact size so that a frame after the first makes no new ones. A texture
// taken from the pool comes back by itself when its last TexturePtr goes; idle ones are kept while
// all together stay within a limit, the longest idle leave first. Contents are undefined when taken.
// GL thread only; outlived by no texture: the pool's state lives on until the last one is back.
class TexturePool {
 public:
  // limit: bytes of textures in use and idle beyond which no idle one is kept; max_size: the
  // context's GL_MAX_TEXTURE_SIZE.
  TexturePool(uint64_t limit, int max_size);

  // A texture of exactly this size, at least 1 x 1. Throws std::runtime_error that names the size
  // and the limit when the context cannot have one.
  TexturePtr acquire(int64_t width, int64_t height);

  // Deletes idle textures until at most this many bytes of them are left.
  void trim(uint64_t idle_bytes);

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
