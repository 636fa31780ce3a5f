#pragma once

#include <qv/io/exr/file.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

struct libdeflate_decompressor;

namespace qv::io::exr {

// The unpacked bytes of a chunk. With `high` null they are those of `low`, in order; else byte 2i is
// low[i] and byte 2i + 1 is high[i], which is how the codecs part them.
struct Planes {
  const uint8_t* low = nullptr;
  const uint8_t* high = nullptr;
};

// A stretch of bytes of a chunk's row that is wanted.
struct Stretch {
  size_t begin = 0, end = 0;
};

// Which bytes of a chunk are wanted: the stretches, ascending and apart, of rows [first, last).
struct Wanted {
  size_t row_bytes = 0;
  size_t first = 0, last = 0;
  std::span<const Stretch> stretches;
};

// Adds every byte less 128 to the sum of those before it, which started at `sum`, in place. Returns the
// last sum. The second only returns it.
uint8_t undo_differences(uint8_t* bytes, size_t n, uint8_t sum);
uint8_t sum_differences(const uint8_t* bytes, size_t n, uint8_t sum);

// Unpacks chunks one after the other. Externally synchronised; one a thread.
class Unpacker {
 public:
  // Throws std::bad_alloc.
  Unpacker();

  // The planes of a chunk that has `size` bytes unpacked, 1 or more and even; what is not wanted has no
  // particular value. They lie here or in `packed`, until the next call. `low` is null when the chunk is
  // damaged. Throws std::bad_alloc.
  Planes unpack(Codec codec, std::span<const uint8_t> packed, size_t size, const Wanted& wanted);

 private:
  struct Free {
    void operator()(libdeflate_decompressor* inflater) const;
  };
  bool expand(Codec codec, std::span<const uint8_t> packed, std::span<uint8_t> to);
  std::unique_ptr<libdeflate_decompressor, Free> inflater_;
  Bytes bytes_;
};

}  // namespace qv::io::exr
