#pragma once

#include "host/gpu/gl_functions.h"
#include "host/gpu/gpu_context.h"
#include "host/gpu/texture_pool.h"

#include <string>

namespace support {

// The host's context and textures on the device of this machine, current on the thread that asks first; null
// with `why` set where there is none. Never ended: an unloaded driver cannot be named where it leaks.
struct Gpu {
  host::gpu::GpuContext context = host::gpu::GpuContext::open({});
  host::gpu::TexturePool pool{uint64_t{1} << 30, context.max_texture_size()};

  static Gpu* get(std::string& why) {
    static std::string reason;
    static Gpu* const gpu = [] {
      try {
        return new Gpu;
      } catch (const host::gpu::NoGpu& error) {
        reason = error.what();
        return static_cast<Gpu*>(nullptr);
      }
    }();
    why = reason;
    return gpu;
  }

  // A texture with these RGBA pixels, the first row at its row 0.
  host::gpu::TexturePtr upload(int width, int height, const float* rgba) {
    auto texture = pool.acquire(width, height);
    host::gpu::gl.BindTexture(GL_TEXTURE_2D, texture->name);
    host::gpu::gl.TexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, width, height, GL_RGBA, GL_FLOAT, rgba);
    host::gpu::gl.BindTexture(GL_TEXTURE_2D, 0);
    return texture;
  }
};

}  // namespace support
