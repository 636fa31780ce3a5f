#pragma once

#include "host/base/extent.h"
#include "host/writer/extremes.h"
#include "host/writer/image_writer.h"

#include <cstdint>
#include <vector>

namespace host::writer {

// Pixels as a file gets them, rows top to bottom of `window`: `channels` values a pixel, `pixel` floats
// from one to the next, `row` floats from one row to the next.
struct Raster {
  Box window{};
  int channels = 4;
  const float* first = nullptr;
  int64_t pixel = 4, row = 0;
};

// A place or a size as files have it. Throws std::runtime_error.
int32_t as_int(int64_t value);

// A picture's own pixels in `window`, so many channels of them, or, where it has not all of them or a copy is
// `wanted`, a copy in `storage`, which is transparent black where the job has none.
Raster raster_of(const Picture& picture, const Box& window, int channels, bool wanted,
                 std::vector<float>& storage);

// Encodes the colour of pixels of so many channels: by the sRGB curve, and divided by alpha for a file type
// whose colour stands beside it. `coverage`: it is premultiplied.
void encode_colour(std::vector<float>& pixels, int channels, bool srgb, bool premultiplied, bool coverage);

// What of these pixels is infinite or no number.
Extremes extremes_of(const Raster& raster);

// Integers have no place for a NaN: it becomes 0 rather than whatever the conversion makes of it.
void drop_not_a_number(std::vector<float>& pixels);

}  // namespace host::writer
