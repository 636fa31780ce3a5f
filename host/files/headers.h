#pragma once

#include "host/base/extent.h"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace host::files {

// Four channels of a file that make an image.
struct Layer {
  std::string name;  // "" for the file's main image
  int subimage = 0;
  Extent extent;  // y up; the format is the file's display window
  // The file's channels that become R, G, B, A. -1: none, colour is 0 there and alpha 1.
  std::array<int, 4> channels = {-1, -1, -1, -1};
  // Alpha says how much of a pixel the colour covers, so colour may be divided by it. False for
  // data: one channel, vectors, ids, and whatever has no alpha of its own.
  bool coverage = false;
};

// What a file says of itself before its pixels are read. A file that cannot be opened has `error`
// set and nothing else.
struct Header {
  std::string error;          // names the path
  std::vector<Layer> layers;  // the main image first, then the others by name; never empty
  bool plain = false;         // one subimage of R, G, B, A that fills its display window
  bool srgb = false;          // colour is encoded with the sRGB curve
  int64_t size = 0;           // bytes
  int64_t mtime_ns = 0;       // last written, nanoseconds since 1970 UTC

  // Null when there is no layer of that name.
  const Layer* find(std::string_view layer) const;
};

// Headers by path, read once a path. Externally synchronised; a lookup of a known path costs a map
// search, of a new one an open of the file. Bounded: the oldest half goes when there are 4,096.
class Headers {
 public:
  // The reference holds until the next call.
  const Header& get(const std::string& path);

  // First and last frame for which a file of this pattern stands; nothing when there is none. The
  // folder is read once a pattern.
  std::optional<std::pair<int64_t, int64_t>> frames_on_disk(const std::string& pattern);

 private:
  std::map<std::string, Header> known_;
  std::vector<std::string> order_;  // paths, the oldest first
  std::map<std::string, std::optional<std::pair<int64_t, int64_t>>> ranges_;
};

}  // namespace host::files
