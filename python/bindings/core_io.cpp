#include <qv/io/decode.h>
#include <qv/io/half.h>
#include <qv/io/image_read.h>
#include <qv/io/layers.h>

#include "python/bindings/arrays.h"
#include "python/bindings/core.h"
#include "python/bindings/pixels.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <pybind11/stl.h>

namespace bindings {

namespace py = pybind11;
using namespace py::literals;

Pixels read_pixels(const std::string& path, int threads) {
  qv::io::DecodeResult plain;
  qv::io::decode_plain(path, threads, plain);
  if (plain.status == qv::io::decode_done)
    return {std::shared_ptr<float[]>(std::move(plain.pixels)), plain.height, plain.width, 4, ""};
  if (plain.status == qv::io::decode_failed) return {nullptr, 0, 0, 0, plain.error};

  auto read = std::make_shared<qv::ImageRead>(qv::oiio_read_float(path));
  float* const pixels = read->pixels.data();
  std::string error = read->error;
  return {std::shared_ptr<float[]>(read, pixels), read->height, read->width, read->channels,
          std::move(error)};
}

Array<float> array_of(const Pixels& pixels) {
  return owned<float>(std::shared_ptr<void>(pixels.floats, pixels.floats.get()), pixels.floats.get(),
                      {pixels.height, pixels.width, pixels.channels});
}

void throw_unreadable(const std::string& path, const std::string& error) {
  const py::object shown = py::reinterpret_steal<py::object>(
      PyUnicode_DecodeFSDefaultAndSize(path.data(), static_cast<py::ssize_t>(path.size())));
  std::error_code ignored;
  if (!std::filesystem::exists(path, ignored)) {
    errno = ENOENT;
    PyErr_SetFromErrnoWithFilenameObject(PyExc_OSError, shown.ptr());
  } else {
    PyErr_SetObject(PyExc_OSError, py::str("{}: {}").format(shown, error).ptr());
  }
  throw py::error_already_set();
}

namespace {

Array<float> half_to_float(const ArrayLike& src) {
  const py::array given = numbers(src, "src");
  if (given.itemsize() != 2 || (given.dtype().kind() != 'f' && given.dtype().kind() != 'u'))
    throw py::type_error("src: float16, or its bits as uint16, is needed, not " +
                         std::string(py::str(given.dtype())));
  const py::array halves = py::array::ensure(given, py::array::c_style);
  if (!halves) throw py::error_already_set();
  py::array_t<float> out(std::vector<py::ssize_t>(halves.shape(), halves.shape() + halves.ndim()));
  const auto* const from = static_cast<const uint16_t*>(halves.data());
  float* const to = out.mutable_data();
  const auto count = static_cast<size_t>(halves.size());
  {
    const py::gil_scoped_release unlocked;
    qv::io::half_to_float(from, to, count);
  }
  return {std::move(out)};
}

Array<float> read_image(const Path& path, int threads) {
  Pixels pixels;
  {
    const py::gil_scoped_release unlocked;
    pixels = read_pixels(path.bytes, threads);
  }
  if (!pixels.error.empty()) throw_unreadable(path.bytes, pixels.error);
  return array_of(pixels);
}

std::vector<std::array<qv::io::Slot, 4>> slots_in(const std::vector<std::vector<qv::io::Slot>>& slots) {
  std::vector<std::array<qv::io::Slot, 4>> result(slots.size());
  for (size_t i = 0; i < slots.size(); ++i) {
    if (slots[i].size() != 4)
      throw py::value_error("slots[" + std::to_string(i) + "]: four are needed, not " +
                            std::to_string(slots[i].size()));
    std::copy_n(slots[i].begin(), 4, result[i].begin());
  }
  return result;
}

std::vector<Array<float>> load_layers(const Path& path, const std::vector<qv::io::Read>& reads,
                                      const std::vector<std::vector<qv::io::Slot>>& slots, int width,
                                      int height, int threads, std::optional<qv::io::Stats*> stats) {
  const auto fours = slots_in(slots);
  if (width < 0 || height < 0) throw py::value_error("width, height: a size is not negative");
  std::vector<Array<float>> arrays;
  std::vector<float*> outs;
  arrays.reserve(slots.size());
  outs.reserve(slots.size());
  for (size_t i = 0; i < slots.size(); ++i) {
    arrays.push_back({py::array_t<float>({height, width, 4})});
    outs.push_back(arrays.back().value.mutable_data());
  }
  std::string error;
  qv::io::Stats spent;
  bool done = false;
  {
    const py::gil_scoped_release unlocked;
    done = qv::io::load_layers(path.bytes, reads, fours, width, height, threads, outs, error, &spent);
  }
  if (stats) **stats = spent;
  if (done) return arrays;
  if (error == "bad plan" || error == "bad slot" || error == "plan does not match the file")
    throw py::value_error(path.bytes + ": " + error);
  if (error == "out of memory") throw std::bad_alloc();
  throw_unreadable(path.bytes, error);
}

void add_layers(py::module_& core) {
  using qv::io::Read;
  using qv::io::Slot;
  using qv::io::Stats;
  py::class_<Read>(core, "Read",
                   R"(One range of channels of one subimage, and where the layer lies in the output.

`chend` is one past the last channel; `x`, `y` are the output column and row of its first pixel; `width` and
`height` must be those of the subimage's data window.)")
      .def(py::init([](int32_t subimage, int32_t begin, int32_t end, int32_t x, int32_t y, int32_t width,
                       int32_t height) { return Read{subimage, begin, end, x, y, width, height}; }),
           "subimage"_a, "chbegin"_a, "chend"_a, "x"_a, "y"_a, "width"_a, "height"_a);
  py::class_<Slot>(
      core, "Slot",
      "Where a component comes from: channel `channel` of read `read`, or below 0 the constant `value`.")
      .def(py::init([](int32_t read, int32_t channel, float value) {
             return Slot{read, channel, value};
           }),
           "read"_a = -1, "channel"_a = 0, "value"_a = 0.0F);
  py::class_<Stats>(core, "Stats", "Where the time of load_layers went, in milliseconds.")
      .def(py::init<>())
      .def_readonly("open_ms", &Stats::open_ms)
      .def_readonly("read_ms", &Stats::read_ms)
      .def_readonly("scatter_ms", &Stats::scatter_ms);
  core.def("load_layers", &load_layers, "path"_a, "reads"_a, "slots"_a, "width"_a, "height"_a,
           "threads"_a = 0, "stats"_a = std::nullopt,
           R"(Reads several channel ranges of one file into RGBA images.

One array of shape (height, width, 4), float32, for each of `slots`, which has four Slots for red, green,
blue and alpha; what a layer does not cover is 0. `threads` bounds the threads, 0 for OpenImageIO's default;
`stats` is filled where it is given. The interpreter's lock is released. ValueError: a plan that does not
fit the file. OSError: a file that cannot be read. MemoryError.)");
}

void add_plain(py::module_& core) {
  using qv::io::DecodeResult;
  core.attr("decode_unknown") = static_cast<int>(qv::io::decode_unknown);
  core.attr("decode_queued") = static_cast<int>(qv::io::decode_queued);
  core.attr("decode_running") = static_cast<int>(qv::io::decode_running);
  core.attr("decode_done") = static_cast<int>(qv::io::decode_done);
  core.attr("decode_other") = static_cast<int>(qv::io::decode_other);
  core.attr("decode_failed") = static_cast<int>(qv::io::decode_failed);
  py::class_<DecodeResult>(core, "DecodeResult", R"(What became of a plain file.

`status` is decode_done, decode_other (not of the plain kind) or decode_failed, with `error`; the times are
in milliseconds; `mtime_ns` is the file's last write since 1970, None where it is not known.)")
      .def_readonly("status", &DecodeResult::status)
      .def_property_readonly(
          "mtime_ns",
          [](const DecodeResult& it) { return it.has_mtime ? std::optional(it.mtime_ns) : std::nullopt; })
      .def_property_readonly(
          "pixels",
          [](const py::object& self) -> std::optional<Array<float>> {
            auto& it = self.cast<DecodeResult&>();
            if (!it.pixels) return std::nullopt;
            return Array<float>{py::array_t<float>({it.height, it.width, 4}, it.pixels.get(), self)};
          },
          "Shape (height, width, 4), float32, RGBA; None unless done.")
      .def_readonly("width", &DecodeResult::width)
      .def_readonly("height", &DecodeResult::height)
      .def_readonly("error", &DecodeResult::error)
      .def_readonly("read_ms", &DecodeResult::read_ms)
      .def_readonly("convert_ms", &DecodeResult::convert_ms);
  core.def(
      "decode_plain",
      [](const Path& path, int threads) {
        auto result = std::make_unique<DecodeResult>();
        qv::io::decode_plain(path.bytes, threads, *result);
        return result;
      },
      "path"_a, "threads"_a = 0, py::call_guard<py::gil_scoped_release>(),
      R"(Decodes a file of exactly the channels R, G, B, A whose data window is its display window. Raises nothing.

Everything is reported in the result. `threads` bounds the threads, 0 for OpenImageIO's default.)");
}

}  // namespace

void add_io(py::module_& core) {
  core.def("half_to_float", &half_to_float, "src"_a,
           R"(Widens half floats of any shape to float32, bit for bit.

`src` is float16, or uint16 with their bits. The interpreter's lock is released. TypeError: another type.

>>> import numpy as np
>>> from quorvel import core
>>> core.half_to_float(np.array([[0x3C00], [0xC000]], np.uint16))
array([[ 1.],
       [-2.]], dtype=float32))");

  core.def("read_image", &read_image, "path"_a, "threads"_a = 0, R"(Reads the first image of a file, whole.

Shape (height, width, channels), float32, of the file's data window, rows top to bottom, channels as
stored. The array is the memory that was read into. `threads` bounds the threads, 0 for OpenImageIO's
default. The interpreter's lock is released. FileNotFoundError; OSError: a file that cannot be read whole.)");

  py::class_<qv::ImageRead>(core, "ImageRead", R"(An image as far as it could be read.

`error` is empty on success. `width` and `height` are the data window's, 0 when the file could not be opened.)")
      .def_readonly("width", &qv::ImageRead::width)
      .def_readonly("height", &qv::ImageRead::height)
      .def_readonly("channels", &qv::ImageRead::channels)
      .def_readonly("error", &qv::ImageRead::error)
      .def_property_readonly(
          "pixels",
          [](const py::object& self) {
            auto& read = self.cast<qv::ImageRead&>();
            const bool whole = !read.pixels.empty();
            return Array<float>{py::array_t<float>(
                {whole ? read.height : 0, whole ? read.width : 0, read.channels}, read.pixels.data(), self)};
          },
          "Shape (height, width, channels), float32; no rows where nothing was read.");
  core.def(
      "oiio_read_float", [](const Path& path) { return qv::oiio_read_float(path.bytes); }, "path"_a,
      py::call_guard<py::gil_scoped_release>(),
      R"(Reads the first image of a file as far as it can be read. Raises nothing.

A damaged file keeps its size and pixels, with what could be read and zeros elsewhere. read_image is
faster for most files.)");

  add_plain(core);
  add_layers(core);
}

}  // namespace bindings
