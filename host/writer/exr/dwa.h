#pragma once

#include "host/writer/exr/part.h"

#include <cstdint>
#include <span>
#include <vector>

namespace host::writer::exr {

// Packs rows of a part by dwaa or dwab, which OpenEXR's core has not had from the start: its C++ library is
// given these rows as an image of their own, and the one chunk of that file is theirs. `values` holds `rows`
// of them as a chunk does unpacked. The result lies in `file`. Throws std::exception. Thread-safe.
std::span<const uint8_t> pack_dwa(const Part& part, int32_t rows, std::span<const uint8_t> values,
                                  std::vector<uint8_t>& file);

}  // namespace host::writer::exr
