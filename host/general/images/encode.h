#pragma once

#include "host/writer/image_writer.h"
#include "host/writer/raster.h"

#include <vector>

namespace host::general::images {

// As Library::encode. Thread-safe.
void encode(const writer::WriteJob& job, const writer::Raster& raster, std::vector<unsigned char>& content);

}  // namespace host::general::images
