#pragma once

#include <cstdint>
#include <string>

namespace qv::io {

// What the operating system says of a file before it is opened.
struct FileAttributes {
  bool found = false;
  int64_t mtime_ns = 0;  // last write, nanoseconds since 1970-01-01 UTC
  uint64_t bytes = 0;
  bool endless = false;  // a pipe, socket or device: opening or reading it may never return
};

// Asks for the attributes of `path` (UTF-8), following links. What cannot be asked is not found.
// Thread-safe.
FileAttributes file_attributes(const std::string& path);

}  // namespace qv::io
