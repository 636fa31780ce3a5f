#include "python/bindings/core.h"

#include <qv/version.h>

#include "python/bindings/bindings.h"

namespace bindings {

void add_core(pybind11::module_& core) {
  core.def("core_version", &qv::core_version, "The version of the compiled library that is loaded.");
  core.def("oiio_runtime_version", &qv::oiio_runtime_version,
           "The version of the OpenImageIO that reads files, in three parts.");
  add_anim(core);
  add_decoder(core);
  add_graph(core);
  add_io(core);
  add_merge(core);
  add_nodes(core);
  add_time(core);
  add_xform(core);
}

}  // namespace bindings
