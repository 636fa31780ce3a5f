#pragma once

#include <qv/transport/driver.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace qv::transport {

// What a start reads: a rectangle of a framebuffer's colour attachment 0, 2 or 4 floats a pixel.
struct Read {
  unsigned framebuffer;
  int x, y, width, height, channels;
};

// A part of a read, some whole rows, with the fence behind it. `offset` and `bytes` say where it
// lies in the slot's buffer and, rows being packed, in the destination as well.
struct Chunk {
  void* fence;
  uint64_t offset;
  uint64_t bytes;
};

// The parts of one read, in its order; in place, so that keeping a fence cannot fail.
class Chunks {
 public:
  static constexpr size_t most = 8;

  void add(const Chunk& chunk) {
    items_[size_++] = chunk;
  }
  void clear() {
    size_ = 0;
  }
  size_t size() const {
    return size_;
  }
  bool empty() const {
    return size_ == 0;
  }
  const Chunk& operator[](size_t k) const {
    return items_[k];
  }
  const Chunk* begin() const {
    return items_.data();
  }
  const Chunk* end() const {
    return items_.data() + size_;
  }

 private:
  std::array<Chunk, most> items_{};
  size_t size_ = 0;
};

// The size of the image; nothing for a rectangle or channel count that cannot be read, or whose
// bytes or far edges do not fit the types of GL.
std::optional<uint64_t> byte_count(const Read& read);

// Rows of every chunk but the last, which may have fewer.
int rows_per_chunk(uint64_t bytes, int height);

// Queues the read, chunk by chunk, into the pixel-pack buffer and binds `restore` as the read
// framebuffer. GL thread only; throws nothing. Empty when the driver refused a fence: the fences made
// before it have then been waited for and destroyed.
Chunks issue(const Driver& driver, void* display, uint32_t buffer, const Read& read, uint64_t bytes,
             unsigned restore);

}  // namespace qv::transport
