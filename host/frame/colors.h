#pragma once

#include "host/node/node.h"
#include "host/shot/composition.h"

#include <cstdint>
#include <string>
#include <vector>

namespace host::frame {

// How colour is taken, for people: "sRGB, made linear".
std::string color_text(const plates::ReadColor& color);

// What is likely to be wrong with the colours of a frame's files: one that is encoded already when an
// output encodes it, one in a space that nobody converts. Opens files for their headers alone; those
// that cannot be read are passed over.
std::vector<std::string> color_notices(const shot::Composition& composition, const node::Project& project,
                                       int64_t frame);

}  // namespace host::frame
