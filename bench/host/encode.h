#pragma once

#include "bench/report.h"

#include <filesystem>

namespace bench {

// Encoding of EXR frames by the host's writer, beside OpenImageIO's and OpenEXR's C++ writer: the processor
// time that a frame takes, of all threads, and the wall time by two of them. Files go nowhere.
void encode_frames(Report& report, const std::filesystem::path& folder);

}  // namespace bench
