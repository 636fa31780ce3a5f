#pragma once

#include "host/files/metadata.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace host::writer::exr {

enum class Type { half, real };

// A channel, and where its values lie: that of the window's column x and row y, counted from its upper
// left pixel, is first[y * row + x * pixel].
struct Channel {
  std::string name;
  Type type = Type::half;
  const float* first = nullptr;
  ptrdiff_t pixel = 4, row = 0;
};

// Pixels as OpenEXR counts them: rows downwards.
struct Window {
  int32_t x = 0, y = 0, width = 1, height = 1;
};

// In OpenEXR's order.
enum class Codec { none, rle, zips, zip, piz, pxr24, b44, b44a, dwaa, dwab };
constexpr std::array<const char*, 10> codec_names = {"none",  "rle", "zips", "zip",  "piz",
                                                     "pxr24", "b44", "b44a", "dwaa", "dwab"};

// One image of a file: rows of flat pixels in increasing order.
struct Part {
  std::string name;  // empty only where there is no other part
  Window display, data;
  float pixel_aspect = 1;
  Codec codec = Codec::zip;
  // zip and zips: from 1, fast, to 9, small; 4 is usual. dwaa and dwab: from 0, fine, upwards; 45 is usual,
  // and the file says it. Below 0: the usual one.
  double level = -1;
  std::vector<files::Metadatum> attributes;  // further ones
  std::vector<Channel> channels;             // by name, as files have them
};

inline bool is_dwa(const Part& part) {
  return part.codec == Codec::dwaa || part.codec == Codec::dwab;
}

// The level that is meant.
inline double level_of(const Part& part) {
  return part.level >= 0 ? part.level : is_dwa(part) ? 45 : 4;
}

// Bytes of a row of `part`, unpacked.
inline size_t row_bytes(const Part& part) {
  size_t pixel = 0;
  for (const Channel& channel : part.channels) pixel += channel.type == Type::half ? 2 : 4;
  return pixel * static_cast<size_t>(part.data.width);
}

}  // namespace host::writer::exr
