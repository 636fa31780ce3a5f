#pragma once

#include <qv/io/exr/layout.h>

#include <optional>
#include <string>

#include <OpenImageIO/imageio.h>

namespace qv::io::general {

// A subimage of the general reader as a part of the file: nothing when the two do not agree on its window
// and channels, or when it is not read by OpenEXR's core.
std::optional<exr::Subimage> subimage_of(const exr::File& file, int subimage, const OIIO::ImageSpec& spec);

// The two decoders of OpenEXR's core for a file that `input` has open, if it is OpenEXR's and one that is
// read there. False when it is not, or anything is wrong with it: the general reader then does it all, and
// finds what to say. `placing_ms` is increased as in exr::decode_layers. `threads`, as that of a plan: 0 and
// less OpenImageIO's default. Throw std::bad_alloc.

// RGBA out of a plain image's four channels.
bool decode_exr(const OIIO::ImageInput& input, const std::string& path, int threads, float* pixels,
                double& placing_ms);

// A plan that has been checked in itself, but not against the file.
bool load_exr(OIIO::ImageInput& input, const std::string& path, const LayerPlan& plan, double& placing_ms);

}  // namespace qv::io::general
