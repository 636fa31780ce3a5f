#pragma once

#include "host/plates/layers.h"
#include "host/plates/part_info.h"

namespace host::plates {

// Adds what a part (a subimage) holds; one without a name is called "part0", "part1", ... Call once a part,
// in order, then name_layers().
void add_part(const PartInfo& info, int subimage, bool exr, Contents& contents);

// Names the layers and finds the main image: the first part with colour of its own, else the first.
// `parts` is how many there are: with one alone, its name need not be said.
void name_layers(int parts, Contents& contents);

}  // namespace host::plates
