#pragma once

#include <qv/io/exr/read.h>
#include <qv/io/layers.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

#include <OpenImageIO/imageio.h>

namespace qv::io::exr {

// A subimage of the general reader as a part of the file.
struct Subimage {
  Part part;
  std::vector<int> channels;  // of the part, in the general reader's order
};

// Nothing when the two do not agree on its window and channels, or when it is not read here.
std::optional<Subimage> subimage_of(const File& file, int subimage, const OIIO::ImageSpec& spec);

// How many threads a count means: 0 and less OpenImageIO's default.
int thread_count(int threads);

// The two decoders for a file that `input` has open, if it is OpenEXR's and one that is read here. False when
// it is not, or anything is wrong with it: the general reader then does it all, and finds what to say.
// `placing_ms` is increased as in decode_layers. Throw std::bad_alloc.

// RGBA out of a plain image's four channels.
bool decode(const OIIO::ImageInput& input, const std::string& path, int threads, float* pixels,
            double& placing_ms);

// A plan that has been checked in itself, but not against the file.
bool load(OIIO::ImageInput& input, const std::string& path, const std::vector<Read>& reads,
          const std::vector<std::array<Slot, 4>>& slots, int width, int height, int threads,
          const std::vector<float*>& outs, double& placing_ms);

}  // namespace qv::io::exr
