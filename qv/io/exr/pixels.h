#pragma once

#include <qv/io/exr/codec.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace qv::io::exr {

// Values of one channel side by side in an unpacked chunk.
struct Run {
  Planes planes;
  size_t begin = 0;  // the byte at which they start
  Type type = Type::half;
};

// Where one component of a pixel comes from: a run, or nowhere, which is a value of its own.
struct Component {
  const Run* run = nullptr;
  float value = 0;
};

// Writes `n` values of a run as floats, every `stride`th: halves bit for bit, whole numbers as
// OpenImageIO scales them.
void write_component(const Run& run, size_t n, float* to, size_t stride);

// Writes `n` pixels of four components. `past_caches` is for what nobody reads soon.
void write_pixels(const std::array<Component, 4>& components, size_t n, float* to, bool past_caches);

// The same of halves alone, four runs of them, as they are.
void write_halves(const std::array<Run, 4>& runs, size_t n, uint16_t* to);

// What write_pixels with `past_caches` wrote is visible to other threads only after this.
void finish_writing();

}  // namespace qv::io::exr
