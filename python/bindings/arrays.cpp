#include "python/bindings/arrays.h"

#include <algorithm>

namespace bindings {

namespace py = pybind11;

namespace {

std::string type_text(const py::handle& value) {
  return py::str(py::type::of(value).attr("__name__"));
}

}  // namespace

std::string shape_text(const py::array& array) {
  return py::str(array.attr("shape"));
}

py::array numbers(const ArrayLike& argument, const char* name) {
  py::array array = py::array::ensure(argument.value);
  if (!array)
    throw py::type_error(std::string(name) + ": no array can be made of a " + type_text(argument.value));
  const char kind = array.dtype().kind();
  if (kind == 'b' || kind == 'i' || kind == 'u' || kind == 'f') return array;
  throw py::type_error(std::string(name) + ": numbers are needed, not " +
                       std::string(py::str(array.dtype())));
}

Packed<double> doubles(const ArrayLike& argument, const char* name) {
  return Packed<double>(numbers(argument, name));
}

Packed<float> floats(const ArrayLike& argument, const char* name) {
  return Packed<float>(numbers(argument, name));
}

Packed<int64_t> integers(const ArrayLike& argument, const char* name) {
  const py::array array = numbers(argument, name);
  // An empty list becomes an array of doubles.
  if (array.dtype().kind() == 'f' && array.size() > 0)
    throw py::type_error(std::string(name) + ": whole numbers are needed, not " +
                         std::string(py::str(array.dtype())));
  return Packed<int64_t>(array);
}

std::vector<int64_t> integers_within(const ArrayLike& argument, const char* name, int64_t least,
                                     int64_t most) {
  const Packed<int64_t> array = integers(argument, name);
  if (array.ndim() != 1)
    throw py::value_error(std::string(name) + ": one row of numbers is needed, not shape " +
                          shape_text(array));
  std::vector<int64_t> values(array.data(), array.data() + array.size());
  const auto outside = std::find_if(values.begin(), values.end(),
                                    [&](int64_t value) { return value < least || value > most; });
  if (outside == values.end()) return values;
  throw py::value_error(std::string(name) + ": " + std::to_string(*outside) + " is not within " +
                        std::to_string(least) + " to " + std::to_string(most));
}

}  // namespace bindings
