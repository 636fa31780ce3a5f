#pragma once

#include <qv/io/band_limit.h>
#include <qv/io/general/scatter.h>

#include <span>
#include <string>

#include <OpenImageIO/imageio.h>

namespace qv::io::general {

// The horizontal bands in which a subimage is read in parallel, each through a file handle of its
// own: `count` of them at most, of `rows` rows each but for the last.
struct Bands {
  int count = 1;
  int rows = 0;
};

// One band for a single thread, tiled or deep images and those under 128 rows. Otherwise bands of
// whole codec blocks, so that no block is decoded twice, as many as band_limit allows.
Bands bands_of(const OIIO::ImageSpec& spec, int threads);

// Several channel ranges of one subimage, and where their pixels go.
struct LayerGroup {
  std::span<const Read> reads;
  std::span<const Layer> pixels;
};

// Memory for the pixels of a range, undefined as yet: halves where they can be read as such. Throws
// std::bad_alloc.
Layer make_layer(const OIIO::ImageInput& input, const OIIO::ImageSpec& spec, const Read& read);

// True when the ranges of a subimage are better read together. OpenEXR keeps the block of rows that
// it unpacked last, so that a second range of it costs only copying; readers of other formats unpack
// all channels of a row in any case.
bool reads_together(const OIIO::ImageInput& input, const OIIO::ImageSpec& spec);

// Fills the pixels of a group in the bands given: a single one through `input`, several in parallel
// through readers opened on `path`. False with OpenImageIO's text in `err`, that of the last band to
// fail. Throws std::bad_alloc. Formats other than OpenEXR need a few rows of all their channels beside
// the pixels, and all rows where samples have 64 bits, which are read in one go.
bool read_in_bands(OIIO::ImageInput& input, const std::string& path, const OIIO::ImageSpec& spec,
                   const LayerGroup& group, const Bands& bands, std::string& err);

}  // namespace qv::io::general
