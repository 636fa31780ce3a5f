#pragma once

#include "host/files/metadata.h"
#include "host/plates/color_space.h"

#include <cstdint>
#include <string>
#include <vector>

namespace host::plates {

// A window in a file's own coordinates: y down, the first pixel at (x, y).
struct FileWindow {
  int64_t x = 0, y = 0, width = 0, height = 0;
  bool operator==(const FileWindow&) const = default;
};

// A part of a file (a subimage), as it is stored.
struct PartInfo {
  struct Channel {
    std::string name;
    std::string type;  // "half", "float", "uint8", "uint32", ...
  };
  std::string name;  // "" where it has none
  FileWindow data, display;
  double pixel_aspect = 1;
  std::string compression;  // "" where the file type has no choice
  int tile_width = 0;       // 0: no tiles
  int tile_height = 0;
  bool deep = false;
  std::vector<Channel> channels;
  files::MetadataPtr metadata;  // what it says beside its pixels; null where that is nothing
};

// What a file says of itself, whoever read it.
struct FileTold {
  std::string format;  // of the file type: "openexr", "tiff", ...
  ColorSpace color;
  bool plain = false;  // one part, which qv::io::is_plain
  std::vector<PartInfo> parts;
};

}  // namespace host::plates
