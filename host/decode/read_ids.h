#pragma once

#include "host/decode/sources.h"
#include "host/plates/open_file.h"

#include <string>

namespace host::decode {

// Reads a layer whose channels hold whole numbers, such as ids, as those numbers: the layer and image
// readers take them for steps from 0 to 1. Exact up to 2^24, as far as a float counts; a notice says
// how many pixels are beyond. Throws std::runtime_error that names the path. Thread-safe for different files.
Pixels read_ids(const std::string& path, plates::OpenFile& file, const plates::Layer& layer);

}  // namespace host::decode
