#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <pybind11/numpy.h>

// Arrays, numbers and paths on their way in and out. Every type has the name that the stubs shall show.
// Whoever takes an argument gives its name along, so that an error can say which one is wrong.
namespace bindings {

// What an array can be made of: an array of any type and layout, nested sequences, an object with a buffer.
struct ArrayLike {
  pybind11::object value;
};

// The same beside an overload for one number.
struct Several : ArrayLike {};

// One number, and nothing that holds several.
struct Number {
  double value = 0;
};

// A path: text or an object that stands for one. Bytes as the file system has them.
struct Path {
  std::string bytes;
};

// An array to hand out.
template <class T>
struct Array {
  pybind11::array_t<T> value;
};

// An exception to hand out as an object.
struct Exception {
  pybind11::object value;
};

template <class T>
using Packed = pybind11::array_t<T, pybind11::array::c_style | pybind11::array::forcecast>;

// The shape of an array as Python writes it: "(3, 4)".
std::string shape_text(const pybind11::array& array);

// The argument as an array of numbers of any type. Throws TypeError for what is not.
pybind11::array numbers(const ArrayLike& argument, const char* name);

// The argument as doubles, or floats, in rows without gaps; copied where it is not that already.
Packed<double> doubles(const ArrayLike& argument, const char* name);
Packed<float> floats(const ArrayLike& argument, const char* name);

// The argument as whole numbers of 64 bits, in rows without gaps. Throws TypeError for fractional types.
Packed<int64_t> integers(const ArrayLike& argument, const char* name);

// The argument as one row of whole numbers between `least` and `most`. Throws ValueError.
std::vector<int64_t> integers_within(const ArrayLike& argument, const char* name, int64_t least,
                                     int64_t most);

template <class T>
std::vector<T> integers_of(const ArrayLike& argument, const char* name) {
  const std::vector<int64_t> values =
      integers_within(argument, name, static_cast<int64_t>(std::numeric_limits<T>::min()),
                      static_cast<int64_t>(std::numeric_limits<T>::max()));
  return {values.begin(), values.end()};
}

// An array over memory that it keeps alive through `owner`. Needs the interpreter's lock.
template <class T>
Array<T> owned(std::shared_ptr<void> owner, const T* data, const std::vector<pybind11::ssize_t>& shape) {
  auto held = std::make_unique<std::shared_ptr<void>>(std::move(owner));
  const pybind11::capsule base(held.get(), [](void* it) { delete static_cast<std::shared_ptr<void>*>(it); });
  (void)held.release();
  return {pybind11::array_t<T>(shape, data, base)};
}

template <class T>
Array<T> owned(std::vector<T>&& values, const std::vector<pybind11::ssize_t>& shape) {
  const auto held = std::make_shared<std::vector<T>>(std::move(values));
  return owned<T>(held, held->data(), shape);
}

// A copy in an array that cannot be written: for fields, where a write would go to the copy alone.
template <class T>
Array<T> snapshot(const std::vector<T>& values) {
  pybind11::array_t<T> copy(static_cast<pybind11::ssize_t>(values.size()), values.data());
  copy.attr("setflags")(pybind11::arg("write") = false);
  return {copy};
}

}  // namespace bindings

namespace pybind11::detail {

template <>
struct type_caster<bindings::ArrayLike> {
  PYBIND11_TYPE_CASTER(bindings::ArrayLike, const_name("numpy.typing.ArrayLike"));
  bool load(handle source, bool) {
    value.value = reinterpret_borrow<object>(source);
    return !source.is_none();
  }
};

template <>
struct type_caster<bindings::Several> {
  PYBIND11_TYPE_CASTER(bindings::Several, const_name("Union[numpy.typing.NDArray[Any], Sequence[Any]]"));
  bool load(handle source, bool) {
    value.value = reinterpret_borrow<object>(source);
    return !source.is_none();
  }
};

template <>
struct type_caster<bindings::Number> {
  PYBIND11_TYPE_CASTER(bindings::Number, const_name("Union[float, numpy.floating[Any], numpy.integer[Any]]"));
  bool load(handle source, bool) {
    if (isinstance<array>(source) || PySequence_Check(source.ptr()) || !PyNumber_Check(source.ptr()))
      return false;
    value.value = PyFloat_AsDouble(source.ptr());
    if (!PyErr_Occurred()) return true;
    PyErr_Clear();
    return false;
  }
};

template <>
struct type_caster<bindings::Path> {
  PYBIND11_TYPE_CASTER(bindings::Path, const_name("Union[str, os.PathLike[str]]"));
  bool load(handle source, bool) {
    PyObject* bytes = nullptr;
    if (PyUnicode_FSConverter(source.ptr(), &bytes) == 0) {
      PyErr_Clear();
      return false;
    }
    value.bytes = reinterpret_steal<pybind11::bytes>(bytes);
    return true;
  }
};

template <>
struct type_caster<bindings::Exception> {
  static constexpr auto name = const_name("BaseException");
  static handle cast(const bindings::Exception& source, return_value_policy, handle) {
    return handle(source.value).inc_ref();
  }
};

template <class T>
struct type_caster<bindings::Array<T>> {
  static constexpr auto name =
      const_name("numpy.typing.NDArray[") + npy_format_descriptor<T>::name + const_name("]");
  static handle cast(const bindings::Array<T>& source, return_value_policy, handle) {
    return handle(source.value).inc_ref();
  }
};

}  // namespace pybind11::detail
