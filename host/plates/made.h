#pragma once

#include "host/files/made.h"

#include <string>

namespace host::plates {

// What an image file says of how it was made. Opens it for its header alone. Throws std::runtime_error that
// names the path when it is no image that can be read. Thread-safe.
files::Made made(const std::string& path);

// The same of a file whose pixels are decoded too, and let go: throws where they cannot be. Holds a strip of
// the image at a time.
files::Made made_whole(const std::string& path);

}  // namespace host::plates
