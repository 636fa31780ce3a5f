#pragma once

#include <qv/io/exr_file.h>

#include "host/general/general.h"
#include "host/plates/part_info.h"

#include <memory>
#include <string>

namespace host::plates {

// A file that is open, for its header and then for its pixels. Externally synchronised.
struct OpenFile {
  std::string path;
  std::unique_ptr<qv::io::ExrFile>
      exr;  // of a common EXR file, which needs no other reader unless it is damaged
  std::unique_ptr<general::File> general;  // null until it is needed

  // Opens it so, unless it is. Throws std::runtime_error that names the path.
  general::File& by_general();

  // By the nearest reader: what the file says of itself and of its parts, of which no more than so many are
  // looked at, but for an EXR file's metadata; the text by which it says what wrote it. Throw as by_general.
  FileTold told(int most_parts);
  std::string software();
};

// By the nearest reader. Throws std::runtime_error that names the path. Thread-safe.
std::shared_ptr<OpenFile> open_file(const std::string& path);

}  // namespace host::plates
