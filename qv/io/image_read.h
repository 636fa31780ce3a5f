#pragma once

#include <qv/export.h>

#include <cstdint>
#include <string>
#include <vector>

namespace qv {

// A whole image as read from a file. `error` is empty on success and is the only sign of failure.
struct ImageRead {
  int32_t width = 0;  // of the file's data window; 0 when the file could not be opened
  int32_t height = 0;
  int32_t channels = 0;       // as stored: neither expanded to RGBA nor reordered
  std::vector<float> pixels;  // width x height x channels, interleaved, rows top to bottom
  std::string error;
};

// Reads the first image of any file that OpenImageIO understands, at full resolution, as floats.
// `path` is UTF-8. Throws nothing: a file that cannot be opened leaves the sizes 0; a damaged one
// keeps sizes and pixels, with what could be read and zeros elsewhere; a volume, what cannot be
// allocated, and over 1 GiB of pixels that the memory there is or the file's bytes and codec cannot
// hold keep the sizes alone.
// Pipes, sockets and devices are refused. Uses as many threads as OpenImageIO's global settings allow.
// Thread-safe.
QV_API ImageRead oiio_read_float(const std::string& path);

}  // namespace qv
