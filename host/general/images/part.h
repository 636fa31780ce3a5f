#pragma once

#include "host/plates/part_info.h"

#include <OpenImageIO/imageio.h>

namespace host::general::images {

// What readers tell of files, as the host has it. Thread-safe.

// `metadata`: with what the part says beside its pixels.
plates::PartInfo part_of(const OIIO::ImageSpec& spec, bool metadata);

// Of a file's first part.
plates::ColorHints color_hints_of(const OIIO::ImageSpec& spec);

}  // namespace host::general::images
