#pragma once

#include <pybind11/pybind11.h>

// The parts of quorvel.core, one function a room. What C++ keeps apart by namespaces of their own, the node
// logic, lies in modules of their own; all else lies in `core` itself.
namespace bindings {

void add_anim(pybind11::module_& core);     // keys and curves
void add_cache(pybind11::module_& core);    // the result cache
void add_decoder(pybind11::module_& core);  // decoding in the background
void add_graph(pybind11::module_& core);    // walk, record, cache, schedule
void add_io(pybind11::module_& core);       // halves and files
void add_merge(pybind11::module_& core);    // core.merge
void add_nodes(pybind11::module_& core);    // core.color, core.filter, core.keyer, core.ocio
void add_time(pybind11::module_& core);     // core.time
void add_xform(pybind11::module_& core);    // matrices, steps, crop and motion blur

}  // namespace bindings
