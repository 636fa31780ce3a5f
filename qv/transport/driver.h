#pragma once

#include <cstddef>
#include <cstdint>

namespace qv::transport {

// The functions of OpenGL and EGL that the ring calls, under their own names in our spelling.
struct Driver {
  void (*bind_buffer)(unsigned target, unsigned buffer) = nullptr;
  unsigned char (*unmap_buffer)(unsigned target) = nullptr;
  void (*delete_buffers)(int n, const unsigned* buffers) = nullptr;
  void (*gen_buffers)(int n, unsigned* buffers) = nullptr;
  void (*buffer_storage)(unsigned target, ptrdiff_t size, const void* data, unsigned flags) = nullptr;
  void* (*map_buffer_range)(unsigned target, ptrdiff_t offset, ptrdiff_t length, unsigned access) = nullptr;
  void (*bind_framebuffer)(unsigned target, unsigned framebuffer) = nullptr;
  void (*read_buffer)(unsigned source) = nullptr;
  void (*read_pixels)(int x, int y, int width, int height, unsigned format, unsigned type,
                      void* pixels) = nullptr;
  void (*flush)() = nullptr;

  void* (*get_current_display)() = nullptr;
  void* (*create_sync)(void* display, unsigned type, const int32_t* attributes) = nullptr;
  int32_t (*client_wait_sync)(void* display, void* sync, int32_t flags, uint64_t nanoseconds) = nullptr;
  unsigned (*destroy_sync)(void* display, void* sync) = nullptr;
};

// Fetches every function; false when EGL or one of them is missing. Needs no current context.
bool load(Driver& driver);

inline constexpr unsigned egl_sync_fence = 0x30F9;
inline constexpr int32_t egl_timeout_expired = 0x30F5;
inline constexpr int32_t egl_condition_satisfied = 0x30F6;
inline constexpr uint64_t egl_forever = UINT64_MAX;

}  // namespace qv::transport
