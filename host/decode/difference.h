#pragma once

#include "host/base/extent.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace host::decode {

// What one channel of two images differs by. Where one has no pixel, its value is 0.
struct ChannelDifference {
  std::string name;      // as the file has it, after the part's where there are several: "left:Z"
  double largest = 0;    // magnitude; infinite where only one is NaN
  int64_t x = 0, y = 0;  // a pixel where it is that large, y up from the format's lower edge
  double mean = 0;       // of the finite magnitudes, over all pixels of either
  int64_t over = 0;      // pixels that differ by more than the tolerance
  int64_t pixels = 0;    // of either
};

struct Difference {
  std::string formats;                                     // "64 x 36 and 32 x 18" where they are not one
  std::vector<std::string> only_in_first, only_in_second;  // channels
  std::vector<ChannelDifference> channels;                 // that both have
  // The magnitudes of the first three channels that both have and of alpha 1, over `window`: RGBA, rows
  // top to bottom. Null where it was not asked for or the first parts share no channel.
  std::shared_ptr<float[]> picture;
  Extent extent;

  bool same() const;  // but for what the tolerance allows
};

// Compares two image files of any kind, part by part and channel by channel. Equal numbers, infinities and
// NaN are the same; whole 32-bit numbers are compared as such. Throws std::runtime_error that names the
// path at fault. Thread-safe. Holds one part of each file, decoded.
Difference difference(const std::string& first, const std::string& second, double tolerance,
                      bool with_picture);

}  // namespace host::decode
