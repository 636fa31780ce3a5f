#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include <OpenImageIO/imageio.h>

namespace qv::io {

// Opens `path` for reading with `threads` as the file's own thread count (0: OpenImageIO's
// default). Null, with a text that is never empty in `error`, when that fails. Pipes, sockets and
// devices are refused, because opening one can wait for ever. Thread-safe.
std::unique_ptr<OIIO::ImageInput> open_reader(const std::string& path, int threads, std::string& error);

// The reader's pending error text, cleared as it is taken; "read failed" when it left none.
std::string take_error(OIIO::ImageInput& input);

// What to ask a reader for, and where to put it, so that floats come of it. Halves and floats are
// asked for as stored, which OpenImageIO 2.4 delivers in place; anything else, and even the stored
// type when it is named, passes through 64 MiB of its scratch memory and a copy.
struct Landing {
  OIIO::TypeDesc type;
  void* at = nullptr;
  bool half = false;  // the last half of the floats' own memory will hold halves, still to be widened
};

// For channels [chbegin, chend) that become `count` floats at `pixels`.
Landing landing(const OIIO::ImageSpec& spec, int chbegin, int chend, float* pixels, size_t count);

}  // namespace qv::io
