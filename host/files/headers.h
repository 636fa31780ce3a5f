#pragma once

#include "host/files/layers.h"

#include <compare>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace host::files {

// What a file says of itself before its pixels are read. A file that cannot be opened has `error`
// set and nothing else.
struct Header {
  std::string error;  // names the path
  Contents contents;
  bool plain = false;  // one subimage of R, G, B, A that fills its display window
  // How colour is encoded: "sRGB", "linear", or another name that the file gives it. Whole numbers
  // are sRGB and floats linear unless the file says otherwise.
  std::string color;
  int64_t size = 0;      // bytes
  int64_t mtime_ns = 0;  // last written, nanoseconds since 1970 UTC
};

// One image wanted of one file: the path, and the layer or channels that become RGBA (none of either:
// the file's main image). The same for every node that reads the same thing.
struct Source {
  std::string path;
  std::string layer;
  std::vector<std::string> channels;
  bool operator==(const Source&) const = default;
  bool operator<(const Source& other) const {
    return std::tie(path, layer, channels) < std::tie(other.path, other.layer, other.channels);
  }
};

// How the colour of a file is taken: what it is encoded as, and whether that is undone.
struct ReadColor {
  std::string space;  // as Header::color
  bool decoded = false;
};

// Headers by path, read once a path. Externally synchronised; a lookup of a known path costs a map
// search, of a new one an open of the file. Bounded: the oldest half goes when there are 4,096.
class Headers {
 public:
  Headers() = default;

  // Images with a side longer than `most_side` are refused: no texture of the device holds them.
  explicit Headers(int64_t most_side) : most_side_(most_side) {}

  // The reference holds until the next call.
  const Header& get(const std::string& path);

  // Where a source's pixels lie in its file. Throws std::runtime_error that names the path when it
  // cannot be read: no file, no such layer, a deep or an oversize image.
  Layer layer(const Source& source);

  // First and last frame for which a file of this pattern stands; nothing when there is none. The
  // folder is read once a pattern.
  std::optional<std::pair<int64_t, int64_t>> frames_on_disk(const std::string& pattern);

 private:
  int64_t most_side_ = std::numeric_limits<int64_t>::max();
  std::map<std::string, Header> known_;
  std::vector<std::string> order_;  // paths, the oldest first
  std::map<std::string, std::optional<std::pair<int64_t, int64_t>>> ranges_;
};

}  // namespace host::files
