#include "python/bindings/bindings.h"

namespace bindings {

void add_renderer(pybind11::module_& module) {
  (void)module;
}

}  // namespace bindings
