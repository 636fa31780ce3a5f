#pragma once

#include "host/writer/exr/file.h"
#include "host/writer/exr/part.h"
#include "host/writer/extremes.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

struct libdeflate_compressor;

namespace host::writer::exr {

// Grown and never shrunk, so that the next chunk need not allocate.
using Bytes = std::vector<uint8_t>;

// Rows [row, row + rows) of a part, counted from its window's first.
struct Chunk {
  int part = 0;
  int32_t row = 0, rows = 0;
};

// Packs chunks one after the other, each in one pass over its pixels: halves and their differences are
// made while they lie in the cache. Externally synchronised; one a thread, for any number of files.
class Packer {
 public:
  // The bytes of a chunk as the file is to have them; they lie in `to`. What packing would not make
  // smaller is stored as it is. Adds to `found`. Throws what File throws.
  std::span<const uint8_t> pack(const File& file, const Part& part, const Chunk& chunk, Bytes& to,
                                Extremes& found);

  // That it keeps for the next chunk.
  size_t bytes() const {
    return row_.capacity() + planes_.capacity() + dwa_.capacity();
  }

 private:
  struct Free {
    void operator()(libdeflate_compressor* compressor) const;
  };
  size_t deflate(const Part& part, const Chunk& chunk, std::span<uint8_t> to, Extremes& found);
  std::unique_ptr<libdeflate_compressor, Free> compressor_;
  int level_ = 0;
  Bytes row_, planes_, dwa_;
};

}  // namespace host::writer::exr
