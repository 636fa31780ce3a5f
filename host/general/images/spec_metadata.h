#pragma once

#include "host/files/metadata.h"
#include "host/writer/container.h"

#include <OpenImageIO/imageio.h>

namespace host::general::images {

// Metadata of files that are no EXR, as OpenImageIO's readers and writers have it: attributes of a spec, some
// of them under other names than OpenEXR's. Thread-safe.

// What the attributes say of the picture, as far as OpenEXR has such a type.
files::Metadata metadata_of(const OIIO::ImageSpec& spec);

// Adds what files of this type hold: PNG texts, TIFF those with a tag of their own.
void add_metadata(const files::Metadata& metadata, writer::Container container, OIIO::ImageSpec& spec);

}  // namespace host::general::images
