#pragma once

#include "python/bindings/arrays.h"

#include <cstdint>
#include <memory>
#include <string>

// Whole images on their way from a file into an array.
namespace bindings {

// An image in memory of its own, rows top to bottom, or why there is none.
struct Pixels {
  std::shared_ptr<float[]> floats;
  int32_t height = 0;
  int32_t width = 0;
  int32_t channels = 0;
  std::string error;
};

// Reads the first image of a file: a plain one by decode_plain, any other by the general reader. Needs no
// interpreter's lock.
Pixels read_pixels(const std::string& path, int threads);

// The pixels as an array of (height, width, channels) over their own memory.
Array<float> array_of(const Pixels& pixels);

// Throws FileNotFoundError, or an OSError with path and error.
[[noreturn]] void throw_unreadable(const std::string& path, const std::string& error);

}  // namespace bindings
