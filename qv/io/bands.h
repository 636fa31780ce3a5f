#pragma once

#include <qv/io/layers.h>

#include <string>

#include <OpenImageIO/imageio.h>

namespace qv::io {

// The horizontal bands in which a subimage is read in parallel, each through a file handle of its
// own: `count` of them at most, of `rows` rows each but for the last.
struct Bands {
  int count = 1;
  int rows = 0;
};

// One band for a single thread, tiled or deep images and those under 128 rows. Otherwise bands of
// whole codec blocks, so that no block is decoded twice: at most 16 or what the environment variable
// QUORVEL_NATIVE_IO_BANDS says, and at most `threads` if that is above 0.
Bands bands_of(const OIIO::ImageSpec& spec, int threads);

// Fills `pixels` (width x height x channels of `read`, interleaved) in the bands given: a single one
// through `input`, several in parallel through readers opened on `path`. False with OpenImageIO's
// text in `err`, that of the last band to fail. Throws std::bad_alloc.
bool read_in_bands(OIIO::ImageInput& input, const std::string& path, const OIIO::ImageSpec& spec,
                   const Read& read, const Bands& bands, float* pixels, std::string& err);

}  // namespace qv::io
