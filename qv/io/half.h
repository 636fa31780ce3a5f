#pragma once

#include <qv/export.h>

#include <cstddef>
#include <cstdint>

namespace qv::io {

// Widens `n` IEEE 754 binary16 values to binary32, bit for bit: subnormals, infinities and signed
// zeros are exact, and a NaN keeps its sign and payload and is not quieted. The result does not
// depend on the processor: one with AVX and F16C converts in groups of eight, any other by
// integer arithmetic; the choice is made once a process.
// The values of `src` may lie in the last half of the bytes of `dst` (widening in place); no
// other overlap is allowed. No alignment beyond that of the types is needed. Large results are
// written past the caches. Cost: the bandwidth of memory. Thread-safe.
QV_API void half_to_float(const uint16_t* src, float* dst, size_t n);

}  // namespace qv::io
