#pragma once

#include <pybind11/pybind11.h>

namespace bindings {

// `_quorvel.FrameImage`: an image in host memory that arrays may share.
void add_frame_image(pybind11::module_& module);

}  // namespace bindings
