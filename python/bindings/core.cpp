#include "python/bindings/bindings.h"

namespace bindings {

void add_core(pybind11::module_& core) {
  (void)core;
}

}  // namespace bindings
