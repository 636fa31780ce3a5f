#pragma once

#include "host/writer/exr/part.h"

#include <cstdint>
#include <span>
#include <vector>

#include <OpenEXR/openexr.h>

namespace host::writer::exr {

// A file in the making, in memory: OpenEXR's core lays it out, others pack what goes into it. Throws
// std::runtime_error that says what the core refused, std::bad_alloc. Externally synchronised but for
// handle() and chunk_rows().
class File {
 public:
  // Begins with the headers of all parts. `content` is emptied, keeping its memory, and the whole file
  // once every chunk is in. The parts and it outlive the file.
  File(std::span<const Part> parts, std::vector<unsigned char>& content);
  ~File();
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  // Rows that are packed together, but for the last ones.
  int32_t chunk_rows(int part) const {
    return chunk_rows_[static_cast<size_t>(part)];
  }

  // Adds the chunk whose first row is `row`, counted from the window's. Chunks come in order, those of
  // one part after those of the one before.
  void append(int part, int32_t row, std::span<const uint8_t> packed);

  // For the core's own functions.
  exr_context_t handle() const {
    return handle_;
  }

 private:
  void add(const Part& part);
  std::span<const Part> parts_;
  exr_context_t handle_ = nullptr;
  std::vector<int32_t> chunk_rows_;
};

// Throws what File throws when `result` is not the core's word for success.
void check(exr_result_t result);

}  // namespace host::writer::exr
