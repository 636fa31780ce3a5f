#pragma once

#include <qv/io/exr/read.h>
#include <qv/io/layer_plan.h>

#include <cstdint>
#include <map>
#include <vector>

namespace qv::io::exr {

// A subimage as users count its channels, and as the part holds them.
struct Subimage {
  Part part;
  std::vector<int> channels;  // of the part, in the users' order
};

using Subimages = std::map<int, Subimage>;  // by their numbers

// Whether a read of load_layers lies within a subimage.
bool fits(const Read& read, const Subimage& subimage);

// The two decoders. False when anything is wrong with the file's pixels. `placing_ms` is increased as in
// decode_layers. `threads` is above 0. Throw std::bad_alloc.

// RGBA out of a subimage of four channels.
bool decode(const File& file, const Subimage& subimage, int threads, float* pixels, double& placing_ms);

// The same of halves, as they are; false where the channels are not all of them.
bool decode_halves(const File& file, const Subimage& subimage, int threads, uint16_t* pixels);

// A plan that has been checked, all reads of which lie within one of the subimages.
bool load(const File& file, const Subimages& subimages, const LayerPlan& plan, int threads,
          double& placing_ms);

}  // namespace qv::io::exr
