#pragma once

#include "host/files/sources.h"

#include <string>

namespace host::files {

// Reads a layer whose channels hold whole numbers, such as ids, as those numbers: the layer and image
// readers take them for steps from 0 to 1. Exact up to 2^24, as far as a float counts; a notice says
// how many pixels are beyond. Throws std::runtime_error that names the path. Thread-safe.
Pixels read_ids(const std::string& path, const Layer& layer);

}  // namespace host::files
