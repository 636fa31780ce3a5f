#pragma once

#include <pybind11/pybind11.h>

// What the compiled module holds, a file or more for each function. Names are those of C++; what Python
// expects beyond them (properties, iteration, errors of its own) is added in python/quorvel. What C++ throws
// becomes an exception of quorvel.errors, by add_errors.
namespace bindings {

void add_errors();
void add_core(pybind11::module_& core);
void add_composition(pybind11::module_& module);
void add_renderer(pybind11::module_& module);

}  // namespace bindings
