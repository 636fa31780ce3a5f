#pragma once

#include "host/files/metadata.h"

#include <string>
#include <vector>

#include <OpenEXR/openexr.h>

namespace host::writer::exr {

// What each part of a file says beside its pixels, with the types that it has there. Opens the file for its
// headers; nothing where that fails, which whoever reads the pixels will say. Thread-safe.
std::vector<files::Metadata> read_metadata(const std::string& path);

// Adds an entry to a part of a file in the making, before its header is written; one that the part has
// already gets the value. Throws std::runtime_error that names the entry.
void add_attribute(exr_context_t file, int part, const files::Metadatum& entry);

}  // namespace host::writer::exr
