#include <qv/gpu/gl/enums.h>
#include <qv/transport/read.h>

#include <algorithm>
#include <limits>

namespace qv::transport {
namespace {

namespace gl = gpu::gl;

constexpr uint64_t pixel_bytes(int channels) {
  return static_cast<uint64_t>(channels) * sizeof(float);
}

// Lets the GPU finish with the buffer, whose slot is about to be free again.
void abandon(const Driver& driver, void* display, const Chunks& chunks) {
  for (const Chunk& chunk : chunks) {
    if (!chunk.fence) continue;
    driver.client_wait_sync(display, chunk.fence, 0, egl_forever);
    driver.destroy_sync(display, chunk.fence);
  }
}

}  // namespace

std::optional<uint64_t> byte_count(const Read& read) {
  constexpr int64_t far_edge = std::numeric_limits<int>::max();
  constexpr uint64_t most = std::numeric_limits<ptrdiff_t>::max() / 2;  // whole MiB above it still fit

  if (read.width < 1 || read.height < 1 || (read.channels != 2 && read.channels != 4)) return std::nullopt;
  if (int64_t{read.x} + read.width > far_edge || int64_t{read.y} + read.height > far_edge)
    return std::nullopt;
  const uint64_t pixels = static_cast<uint64_t>(read.width) * static_cast<uint64_t>(read.height);
  if (pixels > most / pixel_bytes(read.channels)) return std::nullopt;
  return pixels * pixel_bytes(read.channels);
}

int rows_per_chunk(uint64_t bytes, int height) {
  constexpr uint64_t wanted = 4194304;
  const int chunks = static_cast<int>(std::clamp<uint64_t>(bytes / wanted, 1, Chunks::most));
  return height / chunks + (height % chunks != 0);
}

Chunks issue(const Driver& driver, void* display, uint32_t buffer, const Read& read, uint64_t bytes,
             unsigned restore) {
  const int rows = rows_per_chunk(bytes, read.height);
  const uint64_t row_bytes = static_cast<uint64_t>(read.width) * pixel_bytes(read.channels);
  Chunks chunks;

  driver.bind_buffer(gl::PIXEL_PACK_BUFFER, buffer);
  driver.bind_framebuffer(gl::READ_FRAMEBUFFER, read.framebuffer);
  driver.read_buffer(gl::COLOR_ATTACHMENT0);
  for (int row = 0, count = 0; row < read.height; row += count) {
    count = std::min(rows, read.height - row);
    const uint64_t offset = static_cast<uint64_t>(row) * row_bytes;
    // With a pack buffer bound, GL takes the offset in it for the address.
    driver.read_pixels(read.x, read.y + row, read.width, count, read.channels == 2 ? gl::RG : gl::RGBA,
                       gl::FLOAT, reinterpret_cast<void*>(offset));  // NOLINT(performance-no-int-to-ptr)
    void* fence = driver.create_sync(display, egl_sync_fence, nullptr);
    chunks.add({fence, offset, static_cast<uint64_t>(count) * row_bytes});
    // The GPU copies this part while the others are still being queued.
    if (row == 0) driver.flush();
  }
  driver.bind_buffer(gl::PIXEL_PACK_BUFFER, 0);
  driver.bind_framebuffer(gl::READ_FRAMEBUFFER, restore);
  driver.flush();

  if (std::none_of(chunks.begin(), chunks.end(), [](const Chunk& chunk) { return !chunk.fence; }))
    return chunks;
  abandon(driver, display, chunks);
  return {};
}

}  // namespace qv::transport
