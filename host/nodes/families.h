#pragma once

#include "host/node/node.h"

#include <vector>

namespace host::nodes {

using namespace node;  // what families are written in: every name of the room below

// One function a family file: the node types that it defines, in the order in which people should
// read of them. A new family adds its line here and in catalogue.cpp.

std::vector<NodeType> in_out_family();     // read, constant
std::vector<NodeType> write_family();      // write
std::vector<NodeType> metadata_family();   // metadata
std::vector<NodeType> picture_family();    // checkerboard, ramp
std::vector<NodeType> merge_family();      // merge, dissolve, switch
std::vector<NodeType> channel_family();    // copy, channel_merge, shuffle
std::vector<NodeType> key_family();        // range_key, screen_key, edge_fill
std::vector<NodeType> filter_family();     // blur, glow, sharpen, dilate, filter_erode, erode, ...
std::vector<NodeType> defocus_family();    // defocus
std::vector<NodeType> transform_family();  // transform, reformat, corner_pin, crop
std::vector<NodeType> time_family();       // time_offset, frame_hold, frame_blend, time_blur, ...
std::vector<NodeType> color_family();      // grade, saturation, color_matrix, clamp
std::vector<NodeType> pixel_family();      // premultiply, unpremultiply, invert, find_nan
std::vector<NodeType> ocio_family();       // ocio_colorspace, ocio_display, ocio_file, ocio_cdl

}  // namespace host::nodes
