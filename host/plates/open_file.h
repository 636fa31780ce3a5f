#pragma once

#include "host/general/general.h"

#include <memory>
#include <string>

namespace host::plates {

// A file that is open, for its header and then for its pixels. Externally synchronised.
struct OpenFile {
  std::string path;
  std::unique_ptr<general::File> general;  // null until it is needed

  // Opens it so, unless it is. Throws std::runtime_error that names the path.
  general::File& by_general();
};

// Throws std::runtime_error that names the path. Thread-safe.
std::shared_ptr<OpenFile> open_file(const std::string& path);

}  // namespace host::plates
