#pragma once

#include "host/nodes/families.h"

#include <string>

namespace host::nodes {

// What can be put around a node type whatever it does: knobs that decide how much of its result is
// seen. The type's own operation knows nothing of them, so it stands in one place and works alike
// everywhere. The node's first input is what shows where the result does not.

// With a knob "channels": which of them the node changes; `otherwise` is its default, "rgba", "rgb" or
// "alpha". With alpha alone, colour follows: what is premultiplied by the old alpha is so by the new
// one. An image whose alpha is no coverage is all matter of the node: there, alpha means every channel.
NodeType with_channels(NodeType type, std::string otherwise);

}  // namespace host::nodes
