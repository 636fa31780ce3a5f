#pragma once

#include <cstdint>
#include <memory>

namespace host::gpu {

// What a channel of a texel is: a 32-bit float, or a 16-bit one.
enum class Texel : uint8_t { real, half };

// A GL texture that an image or a lookup table lives in. Held by shared pointer: the last holder's
// release hands an image texture back to its pool and deletes a table. GL thread only, release
// included. Image textures are RGBA, float, 2-D, with a framebuffer to draw into; those that are drawn into
// have 32 bits a channel.
struct Texture {
  uint64_t id = 0;           // issued from 1 upward, never reused: names the buffer in the result cache
  uint32_t name = 0;         // GL texture
  uint32_t framebuffer = 0;  // GL framebuffer with the texture as colour attachment 0; 0 for tables
  uint32_t target = 0;       // GL_TEXTURE_2D or GL_TEXTURE_3D
  uint32_t sampler = 0;      // GL sampler object to read through
  int width = 0;
  int height = 0;
  int depth = 1;
  Texel texel = Texel::real;

  // Bytes on the GPU.
  uint64_t bytes() const {
    return (texel == Texel::half ? uint64_t{8} : uint64_t{16}) * static_cast<uint64_t>(width) *
           static_cast<uint64_t>(height) * static_cast<uint64_t>(depth);
  }
};

using TexturePtr = std::shared_ptr<const Texture>;

}  // namespace host::gpu
