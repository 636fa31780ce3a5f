#pragma once

#include "host/node/node.h"

namespace host::nodes {

// What every node that changes an image has around it: an input "mask" and the knobs "mask_channel",
// "invert_mask", "mix" and "channels", which decide how much of its result is seen. NodeType::changes
// names the input that shows where the result does not; the type's own operation knows nothing of all
// this, so it stands in one place and works alike everywhere.
//
// Where they do nothing, the node is asked as if they were not there. With a mix of 0 it is not asked
// for pixels at all: its input comes back. Else the image, the mask and the result are settled and meet in
// shaders/host/around.glsl: within the draw of a node that is one (Drawn), or else in one more.
//
// With alpha alone, colour follows: what is premultiplied by the old alpha is so by the new one. An
// image whose alpha is no coverage is all matter of the node: there, alpha means every channel.
node::NodeType around(node::NodeType type);

}  // namespace host::nodes
