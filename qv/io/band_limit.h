#pragma once

namespace qv::io {

// How many bands, or threads that decode, there may be: at most 16 or what the environment variable
// QUORVEL_NATIVE_IO_BANDS says, and at most `threads` if that is above 0. May be below 1, which counts as 1.
int band_limit(int threads);

}  // namespace qv::io
