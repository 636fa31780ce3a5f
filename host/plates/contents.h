#pragma once

#include "host/plates/layers.h"

#include <OpenImageIO/imageio.h>

namespace host::plates {

// Adds what a part (a subimage) holds. Call once a part, in order, then name_layers().
void add_part(const OIIO::ImageSpec& spec, int subimage, bool exr, Contents& contents);

// Names the layers and finds the main image: the first part with colour of its own, else the first.
// `parts` is how many there are: with one alone, its name need not be said.
void name_layers(int parts, Contents& contents);

}  // namespace host::plates
