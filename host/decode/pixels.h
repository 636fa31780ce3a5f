#pragma once

#include "host/base/extent.h"

#include <cstdint>
#include <memory>
#include <string>

namespace host::decode {

// Decoded pixels: RGBA, premultiplied as the file has them, rows top to bottom, of the whole window of
// `extent`. Floats; or halves where the file holds those alone, which floats would say in twice the bytes.
// The values are shared with whoever decoded them, and missing in a rehearsal.
struct Pixels {
  Extent extent;
  std::shared_ptr<const float[]> rgba;
  std::string notice;  // what a person should know of them; empty when nothing
  bool half = false;   // they are in `halves` instead
  std::shared_ptr<const uint16_t[]> halves = nullptr;

  uint64_t bytes() const {
    return pixel_bytes(extent.window, half);
  }
};

}  // namespace host::decode
