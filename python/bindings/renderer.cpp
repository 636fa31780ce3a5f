#include "host/render/renderer.h"

#include "host/base/byte_size.h"
#include "host/gpu/gpu_context.h"
#include "host/report/stats_text.h"
#include "host/service/frame_stream.h"
#include "host/service/shared_renderer.h"
#include "python/bindings/bindings.h"
#include "python/bindings/composition.h"
#include "python/bindings/frame_image.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <pybind11/functional.h>
#include <pybind11/stl.h>

namespace bindings {
namespace {

namespace py = pybind11;
namespace draw = host::draw;
namespace render = host::render;
namespace service = host::service;
using namespace py::literals;
using Texts = std::vector<std::string>;

// Whether a signal asks the calling thread to give up, as Ctrl-C does the main one. Its exception then waits.
bool signalled() {
  const py::gil_scoped_acquire lock;
  return PyErr_CheckSignals() != 0;
}

// Runs what waits without the interpreter's lock. What ended it early is the exception that waits, if any.
template <class Work>
auto unlocked(Work&& work) {
  try {
    const py::gil_scoped_release unlock;
    return work();
  } catch (const host::frame::Interrupted&) {
    if (PyErr_Occurred()) throw py::error_already_set();
    throw service::Closed();
  }
}

draw::ImageRequest request(const CompiledComposition& composition, const std::optional<std::string>& node,
                           double scale, const std::string& area) {
  draw::ImageRequest wanted;
  const host::shot::Composition& shot = *composition;
  wanted.node = node ? shot.find(*node) : shot.outputs.front();
  if (wanted.node < 0) throw UnknownNode(shot, *node);
  if (!(scale >= 0 && scale <= 1)) throw py::value_error("scale: expected a number above 0 and at most 1");
  wanted.scale = scale;
  if (area != "format" && area != "window")
    throw py::value_error("area: expected \"format\" or \"window\", found \"" + area + "\"");
  wanted.area = area == "format" ? draw::Area::format : draw::Area::window;
  return wanted;
}

host::plan::Existing existing(const std::string& word) {
  using host::plan::Existing;
  if (word == "overwrite") return Existing::overwrite;
  if (word == "skip_existing") return Existing::skip;
  if (word == "skip_current") return Existing::current;
  return Existing::refuse;
}

// Hands on what a run tells to a Python function, which gets the reports' fields; what that raises ends the
// run.
class Teller : public render::Progress {
 public:
  explicit Teller(py::object tell) : tell_(std::move(tell)) {}

  void begin(int64_t /*frames*/, const std::string& /*renderer*/, bool /*software*/) override {}
  void notice(const std::string& text) override {
    tell("notice", text);
  }
  void frame(const render::FrameReport& report) override {
    const py::gil_scoped_acquire lock;
    tell("frame", py::make_tuple(report.frame, report.files, report.error, report.skipped, report.computed,
                                 report.cached, report.ms, report.bytes));
  }
  void end(render::Outcome /*outcome*/, const draw::Stats& /*stats*/) override {}

  bool failed() const {
    return failed_;
  }
  // With the lock.
  void raise() {
    if (error_) throw py::error_already_set(std::move(*error_));
  }

 private:
  template <class Value>
  void tell(const char* what, const Value& value) {
    const py::gil_scoped_acquire lock;
    if (failed_) return;
    try {
      tell_(what, value);
    } catch (py::error_already_set& error) {
      error_.emplace(std::move(error));
      failed_ = true;
    }
  }

  py::object tell_;
  std::optional<py::error_already_set> error_;
  std::atomic<bool> failed_ = false;
};

// The renderer and its streams are let go without the lock: their end waits for calls that may want it.
template <class Owned>
struct Unlocking {
  void operator()(Owned* owned) const {
    const py::gil_scoped_release unlock;
    delete owned;
  }
};

using Held = std::unique_ptr<service::SharedRenderer, Unlocking<service::SharedRenderer>>;
using HeldStream = std::unique_ptr<service::FrameStream, Unlocking<service::FrameStream>>;

Held make(uint64_t memory, int threads, double scale, const std::string& gpu, bool content) {
  render::RendererOptions options;
  options.memory = memory;
  options.threads = threads;
  if (!(scale > 0 && scale <= 1)) throw py::value_error("scale: expected a number above 0 and at most 1");
  if (threads < 0) throw py::value_error("threads: expected a number of at least 0");
  options.scale = scale;
  options.by_content = content;
  return Held(new service::SharedRenderer(options, host::gpu::parse_device(gpu)));
}

draw::FrameImage frame(service::SharedRenderer& renderer, const CompiledComposition& composition,
                       int64_t frame, const std::optional<std::string>& node, double scale,
                       const std::string& area) {
  const draw::ImageRequest wanted = request(composition, node, scale, area);
  return unlocked([&] { return renderer.read(composition.shared(), wanted, frame, signalled); });
}

HeldStream frames(service::SharedRenderer& renderer, const CompiledComposition& composition,
                  std::vector<int64_t> list, const std::optional<std::string>& node, double scale,
                  const std::string& area) {
  const draw::ImageRequest wanted = request(composition, node, scale, area);
  return HeldStream(renderer.stream(composition.shared(), wanted, std::move(list)).release());
}

const char* write(service::SharedRenderer& renderer, const CompiledComposition& composition,
                  std::vector<int64_t> list, Texts outputs, const std::string& present, bool keep_going,
                  py::object tell) {
  render::RunOptions options;
  options.frames = std::move(list);
  options.outputs = std::move(outputs);
  options.existing = existing(present);
  options.keep_going = keep_going;
  Teller teller(std::move(tell));
  render::Outcome outcome = render::Outcome::nothing;
  try {
    outcome = unlocked([&] {
      return renderer.write(composition.shared(), options, teller,
                            [&teller] { return teller.failed() || signalled(); });
    });
  } catch (const std::exception&) {
    teller.raise();
    throw;
  }
  teller.raise();
  if (outcome == render::Outcome::interrupted) {
    if (PyErr_Occurred()) throw py::error_already_set();
    throw service::Closed();
  }
  return outcome == render::Outcome::done ? "done" : "failed";
}

std::vector<std::tuple<int64_t, std::string, uint64_t>> held(service::SharedRenderer& renderer) {
  std::vector<std::tuple<int64_t, std::string, uint64_t>> list;
  for (const draw::HeldImage& image : renderer.held())
    list.emplace_back(image.frame, image.node, image.bytes);
  return list;
}

uint64_t byte_size(const std::string& text) {
  const std::optional<uint64_t> bytes = host::parse_byte_size(text);
  if (!bytes) throw py::value_error("memory: expected a size such as 4G or 512M, found \"" + text + "\"");
  return *bytes;
}

}  // namespace

void add_renderer(py::module_& module) {
  add_frame_image(module);
  module.def("byte_size", &byte_size, "text"_a, "The bytes of a size such as \"512M\" or \"4G\".");
  py::class_<service::FrameStream, HeldStream>(module, "FrameStream",
                                               "Images of one frame after another, drawn ahead.")
      .def("__iter__", [](service::FrameStream& self) -> service::FrameStream& { return self; })
      .def("__next__", [](service::FrameStream& self) {
        auto image = unlocked([&] { return self.next(signalled); });
        if (!image) throw py::stop_iteration();
        return std::move(*image);
      });
  py::class_<service::SharedRenderer, Held>(module, "Renderer", "Draws frames of compositions.")
      .def(py::init(&make), "memory"_a, "threads"_a, "scale"_a, "gpu"_a, "content"_a)
      .def("frame", &frame, "composition"_a, "frame"_a, "node"_a, "scale"_a, "area"_a)
      .def("frames", &frames, "composition"_a, "frames"_a, "node"_a, "scale"_a, "area"_a)
      .def("write", &write, "composition"_a, "frames"_a, "outputs"_a, "existing"_a, "keep_going"_a, "tell"_a)
      .def("held", &held)
      .def("take_notices", &service::SharedRenderer::take_notices)
      .def("stats",
           [](service::SharedRenderer& self) {
             return host::report::stats_json(unlocked([&] { return self.stats(); }));
           })
      .def("close", [](service::SharedRenderer& self) {
        const py::gil_scoped_release unlock;
        self.close();
      });
}

}  // namespace bindings
