#include "python/bindings/bindings.h"

namespace bindings {

void add_composition(pybind11::module_& module) {
  (void)module;
}

}  // namespace bindings
