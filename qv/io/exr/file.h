#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qv::io::exr {

// How the chunks of a part are packed. Others of OpenEXR's codecs are left to the general reader.
enum class Codec { none, rle, zip };

enum class Type { uint, half, real };

struct Channel {
  std::string name;
  Type type = Type::half;
  int64_t bytes = 2;   // of a value
  int64_t before = 0;  // bytes that the channels before it take of a pixel
};

// A part of flat pixels, every channel of which has a value at every pixel.
struct Part {
  int index = 0;
  std::string name;                                                             // "" where it has none
  int32_t x = 0, y = 0, width = 0, height = 0;                                  // its data window
  int32_t display_x = 0, display_y = 0, display_width = 0, display_height = 0;  // 0 where it counts no pixels
  float pixel_aspect = 1;
  std::string_view compression;               // OpenEXR's name of it
  int32_t chunk_width = 0, chunk_height = 0;  // of all chunks but the last ones
  bool tiled = false;
  Codec codec = Codec::none;
  std::vector<Channel> channels;  // in the order in which a row holds them
  int64_t pixel_bytes = 0;
};

// The pixels that are packed together, counted from the window's corner. A chunk holds rows, a row
// its channels one after the other.
struct Chunk {
  int32_t x = 0, y = 0, width = 0, height = 0;
};

int64_t chunks_across(const Part& part);
int64_t chunks_down(const Part& part);
Chunk chunk_at(const Part& part, int64_t across, int64_t down);

// Bytes of no particular value that grow and are used again.
class Bytes {
 public:
  // At least `size` of them. Throws std::bad_alloc.
  uint8_t* fit(size_t size);

 private:
  std::unique_ptr<uint8_t[]> bytes_;
  size_t size_ = 0;
};

// An OpenEXR file, parsed by OpenEXR's core. It is only ever read where the general reader has
// accepted the file, so that nothing here says what is wrong: whatever is, the general reader finds.
// Members are thread-safe.
class File {
 public:
  // Null when it cannot be opened or is damaged. `path` is UTF-8.
  static std::unique_ptr<File> open(const std::string& path);
  // The same of a file in memory, which must outlive the result.
  static std::unique_ptr<File> open(std::span<const uint8_t> file);

  ~File();
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  int parts() const;

  // Nothing for a part that is not read here: deep, subsampled or of another codec.
  std::optional<Part> part(int index) const;

  // Whether the table of a part's chunks is there, and the last of them begins within the file.
  bool has_last_chunk(const Part& part) const;

  // An attribute of a part that is one text; "" where there is none.
  std::string text(int part, const std::string& name) const;

  // The bytes of a chunk as they are packed; empty when they are missing or cannot be a chunk of
  // this size. They lie in `bytes`. Throws std::bad_alloc.
  std::span<const uint8_t> read(const Part& part, const Chunk& chunk, Bytes& bytes) const;

 private:
  struct Context;
  explicit File(std::unique_ptr<Context> context);
  std::unique_ptr<Context> context_;
};

}  // namespace qv::io::exr
