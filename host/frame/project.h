#pragma once

#include "host/node/node.h"
#include "host/shot/composition.h"

namespace host::frame {

// What the nodes of a render share: the composition's format at a scale (--proxy, above 0 and at most
// 1), its frames, its folder; how files are known (--content). `headers` outlives the result.
node::Project make_project(const shot::Composition& composition, double scale, plates::Headers& headers,
                           bool by_content = false);

}  // namespace host::frame
