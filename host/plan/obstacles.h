#pragma once

#include "host/base/extent.h"

#include <string>

namespace host::plan {

// What stands in the way of a file that is to be written, as far as the disk tells beforehand. Texts
// begin with the path and are "" when there is nothing. Nothing is written. Thread-safe.

// Whether something stands under a name, be it at the end of a link.
bool stands(const std::string& path);

// A folder of that name, or one that cannot be made or written to.
std::string obstacle(const std::string& path);

// What is said of a file that stands where none may.
std::string exists_text(const std::string& path);

// Why a file that stands is not what would be written: no image, or one of another scale, or of another
// format than `format`, unless that is null. Opens it for its header.
std::string stale_reason(const std::string& path, double scale, const Format* format);

}  // namespace host::plan
