#include "host/base/suggest.h"
#include "host/draw/held_images.h"
#include "host/frame/frame_error.h"
#include "host/gpu/gpu_context.h"
#include "host/gpu/gpu_thread.h"
#include "host/programs/shader_library.h"
#include "host/service/shared_renderer.h"
#include "host/shot/composition.h"
#include "python/bindings/bindings.h"
#include "python/bindings/composition.h"

#include <exception>
#include <string>
#include <utility>
#include <vector>

namespace bindings {
namespace {

namespace py = pybind11;

// The class of that name in quorvel.errors, with the text; it finds node, knob and frame in there.
void raise(const char* name, const std::exception& error) {
  const py::object type = py::module_::import("quorvel.errors").attr(name);
  PyErr_SetString(type.ptr(), error.what());
}

void translate(std::exception_ptr thrown) {
  try {
    std::rethrow_exception(std::move(thrown));
  } catch (const UnknownNode& error) {
    raise("UnknownNode", error);
  } catch (const host::shot::CompositionError& error) {
    raise("CompositionError", error);
  } catch (const host::frame::MemoryLimit& error) {
    raise("MemoryBudgetError", error);
  } catch (const host::frame::FrameError& error) {
    raise("FrameError", error);
  } catch (const host::draw::MemoryBudget& error) {
    raise("MemoryBudgetError", error);
  } catch (const host::gpu::NoGpu& error) {
    raise("Error", error);
  } catch (const host::gpu::Forked& error) {
    raise("Error", error);
  } catch (const host::service::Closed& error) {
    raise("Error", error);
  } catch (const host::programs::ShaderError& error) {
    raise("Error", error);
  }
}

std::vector<std::string> names_of(const host::shot::Composition& composition) {
  std::vector<std::string> names;
  names.reserve(composition.nodes.size());
  for (const host::node::Node& node : composition.nodes) names.push_back(node.name);
  return names;
}

}  // namespace

UnknownNode::UnknownNode(const host::shot::Composition& composition, const std::string& name)
    : CompositionError(composition.file + ": there is no node \"" + name + "\"" +
                       host::did_you_mean(name, names_of(composition))) {}

void add_errors() {
  py::register_exception_translator(&translate);
}

}  // namespace bindings
