#pragma once

#include <pybind11/pybind11.h>

// The parts of quorvel.core, one function a room. What C++ keeps apart by namespaces of their own, the node
// logic, lies in modules of their own; all else lies in `core` itself.
namespace bindings {

void add_anim(pybind11::module_& core);  // keys and curves
void add_time(pybind11::module_& core);  // core.time

}  // namespace bindings
