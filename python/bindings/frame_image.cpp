#include "python/bindings/frame_image.h"

#include "host/draw/frame_image.h"
#include "host/plan/targets.h"
#include "host/writer/image_writer.h"

#include <array>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>
#include <utility>

#include <pybind11/stl.h>

namespace bindings {
namespace {

namespace py = pybind11;
using namespace py::literals;
using host::draw::FrameImage;

constexpr py::ssize_t channels = 4;
constexpr auto float_bytes = static_cast<py::ssize_t>(sizeof(float));

// Arrays of no size have an address as well.
const float* pixels_of(const FrameImage& image) {
  static const std::array<float, channels> none = {};
  return image.pixels ? image.pixels.get() : none.data();
}

std::array<py::ssize_t, 3> shape_of(const FrameImage& image) {
  return {static_cast<py::ssize_t>(host::box_height(image.area)),
          static_cast<py::ssize_t>(host::box_width(image.area)), channels};
}

py::buffer_info buffer_of(FrameImage& image) {
  const std::array<py::ssize_t, 3> shape = shape_of(image);
  return {const_cast<float*>(pixels_of(image)),
          float_bytes,
          py::format_descriptor<float>::format(),
          3,
          {shape[0], shape[1], shape[2]},
          {shape[1] * channels * float_bytes, channels * float_bytes, float_bytes},
          true};
}

// DLPack's exchange of arrays, version 0: the structs that its readers expect in a capsule.
namespace dlpack {

struct Device {
  int32_t type = 1;  // host memory
  int32_t id = 0;
};

struct Tensor {
  void* data = nullptr;
  Device device;
  int32_t dimensions = 3;
  uint8_t type_code = 2;  // floating point
  uint8_t bits = 32;
  uint16_t lanes = 1;
  int64_t* shape = nullptr;
  int64_t* strides = nullptr;  // null: rows without gaps
  uint64_t byte_offset = 0;
};

struct Managed {
  Tensor tensor;
  void* context = nullptr;
  void (*deleter)(Managed*) = nullptr;
};

struct Shared {
  Managed managed;
  std::array<int64_t, 3> shape{};
  std::shared_ptr<const float[]> pixels;
};

constexpr const char* name = "dltensor";

// Of a capsule that nobody took; whoever takes it renames it.
void drop(PyObject* capsule) {
  if (PyCapsule_IsValid(capsule, name) == 0) return;
  auto* const managed = static_cast<Managed*>(PyCapsule_GetPointer(capsule, name));
  managed->deleter(managed);
}

py::object share(const FrameImage& image) {
  auto shared = std::make_unique<Shared>();
  const auto shape = shape_of(image);
  shared->shape = {shape[0], shape[1], shape[2]};
  shared->pixels = image.pixels;
  shared->managed.tensor.data = const_cast<float*>(pixels_of(image));
  shared->managed.tensor.shape = shared->shape.data();
  shared->managed.context = shared.get();
  shared->managed.deleter = [](Managed* last) { delete static_cast<Shared*>(last->context); };
  PyObject* const capsule = PyCapsule_New(&shared->managed, name, drop);
  if (!capsule) throw py::error_already_set();
  (void)shared.release();
  return py::reinterpret_steal<py::object>(capsule);
}

}  // namespace dlpack

py::object value_of(const host::files::Metadatum& entry) {
  if (entry.type == "string" && entry.texts.size() == 1) return py::str(entry.texts[0]);
  if (entry.type == "stringvector") return py::cast(entry.texts);
  return py::str(host::files::text_of(entry));
}

py::dict metadata_of(const FrameImage& image) {
  py::dict all;
  if (!image.metadata) return all;
  for (const host::files::Metadatum& entry : image.metadata->all()) {
    if (entry.type == "int" || entry.type == "float" || entry.type == "double") {
      all[entry.name.c_str()] = entry.numbers.at(0);
    } else {
      all[entry.name.c_str()] = value_of(entry);
    }
  }
  return all;
}

// As a `write` node without knobs would.
void save(const FrameImage& image, const std::string& path) {
  if (!image.pixels) throw std::runtime_error(path + ": the image has no pixels");
  std::string error;
  {
    host::writer::ImageWriter writer(1, 1,
                                     [&](const host::writer::WriteResult& result) { error = result.error; });
    host::writer::WriteJob job;
    job.frame = image.frame;
    job.file.path = path;
    job.file.overscan = true;
    job.extent = {image.extent.format, image.area};
    job.rgba = image.pixels;
    job.coverage = image.coverage;
    job.metadata = image.metadata;
    writer.put(std::move(job));
    writer.finish();
  }
  if (!error.empty()) throw std::runtime_error(error);
}

std::tuple<int64_t, int64_t, int64_t, int64_t> box_tuple(const host::Box& box) {
  return {box[0], box[1], box[2], box[3]};
}

}  // namespace

void add_frame_image(py::module_& module) {
  py::class_<FrameImage>(module, "FrameImage", py::buffer_protocol(),
                         "RGBA float pixels in host memory, rows top to bottom; read-only.")
      .def(py::init<const FrameImage&>(), "image"_a)
      .def_buffer(&buffer_of)
      .def(
          "__dlpack__",
          [](const FrameImage& self, const py::object& /*stream*/) { return dlpack::share(self); },
          "stream"_a = py::none())
      .def("__dlpack_device__", [](const FrameImage& /*self*/) { return std::make_tuple(1, 0); })
      .def_property_readonly("shape",
                             [](const FrameImage& self) {
                               const auto shape = shape_of(self);
                               return std::make_tuple(shape[0], shape[1], shape[2]);
                             })
      .def_property_readonly("node", [](const FrameImage& self) { return self.node; })
      .def_property_readonly("frame", [](const FrameImage& self) { return self.frame; })
      .def_property_readonly("window", [](const FrameImage& self) { return box_tuple(self.extent.window); })
      .def_property_readonly("area", [](const FrameImage& self) { return box_tuple(self.area); })
      .def_property_readonly("format",
                             [](const FrameImage& self) {
                               const host::Format& format = self.extent.format;
                               return std::make_tuple(format.width, format.height, format.pixel_aspect);
                             })
      .def_property_readonly("coverage", [](const FrameImage& self) { return self.coverage; })
      .def_property_readonly("metadata", &metadata_of)
      .def("save", &save, py::call_guard<py::gil_scoped_release>(), "path"_a);
}

}  // namespace bindings
