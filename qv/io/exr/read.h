#pragma once

#include <qv/io/exr/file.h>

#include <array>
#include <cstdint>
#include <span>

namespace qv::io::exr {

// What one component of a layer's pixels is.
struct Source {
  enum class Kind { channel, value, untouched };
  Kind kind = Kind::untouched;
  int channel = 0;  // of the part
  float value = 0;
};

// A part, or some of its channels, and where it lies in an RGBA image, of which only pixels that it
// covers are written.
struct Layer {
  std::array<Source, 4> sources;
  float* pixels = nullptr;     // of the image, rows top to bottom
  uint16_t* halves = nullptr;  // the image in place of those, where all four sources are channels of halves
  int64_t width = 0, height = 0;
  int64_t x = 0, y = 0;  // image column and row of the part's first
};

// Unpacks the chunks of a part that any layer shows, each once, and fills the layers from them, on
// `threads` threads at most, the calling one among them; fewer where there is little to do. False when
// one of the chunks is missing or damaged, or when memory ran out; the layers then hold whatever was written.
// `converting_ms` is increased by what widening and placing took of the time. Thread-safe for different
// images.
bool decode_layers(const File& file, const Part& part, std::span<const Layer> layers, int threads,
                   double& converting_ms);

}  // namespace qv::io::exr
