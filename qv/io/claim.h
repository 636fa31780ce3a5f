#pragma once

#include <qv/io/file_attributes.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qv::io {

// What keeps a small file with a damaged header from taking the process down: such a header can claim
// any width, some codecs then deliver that many pixels of nothing, and a system that grants more memory
// than it has kills whoever writes to it. So an image of over 1 GiB, or with rows of over 4 MiB, is judged
// before its pixels are allocated, by facts alone: what its codec can at most make of the file's bytes, and
// the memory that there is. Smaller ones and codecs without a bound are believed.

// Bytes that the system and the process's control groups can still give, free swap included; nothing
// where they do not say. Linux: MemAvailable; a group's limit less what its processes hold.
std::optional<uint64_t> available_memory();

// False for over 1 GiB where less is available, which is asked only then.
bool fits_memory(uint64_t bytes);

// What a header says of an image's size.
struct Claim {
  int64_t width = 0, height = 0, channels = 0;
  uint64_t row_bytes = 0;  // as it is stored
  std::optional<uint64_t>
      ratio;  // the most bytes of pixels that one byte of the file can hold, if there is one
};

// That of an OpenEXR compression by its name: a fact of the codec, not a habit of files.
std::optional<uint64_t> exr_ratio(std::string_view compression);

// Why an image of a file is not to be read as floats; empty when nothing speaks against it. Thread-safe, as
// all of these.
std::string refusal(const Claim& claim, const FileAttributes& file);

}  // namespace qv::io
