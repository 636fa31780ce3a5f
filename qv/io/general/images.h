#pragma once

#include <qv/io/decode.h>
#include <qv/io/image_read.h>
#include <qv/io/layer_plan.h>

#include <string>

#include <OpenImageIO/imageio.h>

namespace qv::io::general {

// What qv::io's functions of these names and qv::oiio_read_float do, all of it through OpenImageIO and, where
// that has accepted a file of OpenEXR's, through OpenEXR's core. Thread-safe; throw nothing. `open`, where it
// is not null, is the file, which then stays open.
void decode_plain(OIIO::ImageInput* open, const std::string& path, int threads, DecodeResult& out);
bool load_layers(OIIO::ImageInput* open, const std::string& path, const LayerPlan& plan, std::string& err,
                 Stats* stats);
ImageRead read_float(const std::string& path);

}  // namespace qv::io::general
