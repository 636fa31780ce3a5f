#pragma once

#include "host/plates/headers.h"

#include <OpenImageIO/imageio.h>

namespace host::plates {

// Of a file's first part. Whole numbers are sRGB and floats linear unless the file says otherwise.
ColorSpace color_space_of(const OIIO::ImageSpec& spec);

}  // namespace host::plates
