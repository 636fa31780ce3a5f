#include <qv/version.h>

#include "python/bindings/bindings.h"

PYBIND11_MODULE(_quorvel, module) {
  module.doc() = "The compiled part of quorvel.";
  module.attr("version") = qv::core_version();
  bindings::add_errors();
  pybind11::module_ core = module.def_submodule("core", "The parts of the library that need no GL context.");
  bindings::add_core(core);
  bindings::add_composition(module);
  bindings::add_renderer(module);
}
