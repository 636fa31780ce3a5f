#pragma once

#include <memory>

#include <OpenImageIO/imageio.h>

namespace host::plates {

// A file whose header has just been read, for who goes on to its pixels.
struct OpenFile {
  std::unique_ptr<OIIO::ImageInput> input;
};

}  // namespace host::plates
