#pragma once

#include "host/frame/frame_graph.h"

#include <string>
#include <vector>

namespace host::frame {

// What a person should be told of a frame though it stops nothing, a line each that names file, node and
// frame. What fails is passed over: rendering says what is wrong.
std::vector<std::string> frame_notices(const shot::Composition& composition, const FrameGraph& graph,
                                       const node::Project& project);

}  // namespace host::frame
