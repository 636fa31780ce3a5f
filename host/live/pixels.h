#pragma once

#include "host/live/session/session.h"

#include <cstddef>

namespace host::live {

// As protocol.ts has it: "rgba16f".
const char* pixels_name(session::Pixels pixels);

// Bytes of one pixel.
size_t pixel_bytes(session::Pixels pixels);

// Packs `count` pixels of four floats into `to`, which has room for their bytes and is aligned to 4:
//   rgba16f     four halves, rounded to nearest, of two the even one; beyond 65504 that
//   r11g11b10f  floats without sign of 6, 6 and 5 bits after the point in one word, red lowest, rounded
//   likewise;
//               below 0 is 0, beyond the most (65024, 65024, 64512) that; infinities and NaN stay
//   rgba8       0 to 1 as 0 to 255, rounded to nearest; NaN is 0
// Thread-safe. As fast as memory for rgba16f.
void pack_pixels(session::Pixels pixels, const float* from, size_t count, void* to);

}  // namespace host::live
