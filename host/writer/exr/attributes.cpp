#include "host/writer/exr/attributes.h"

#include "host/files/made.h"
#include "host/writer/exr/file.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace host::writer::exr {
namespace {

void keep_silent(exr_const_context_t /*context*/, exr_result_t /*code*/, const char* /*text*/) {}

size_t size_of(char kind) {
  return kind == 'd' ? 8 : kind == 'b' ? 1 : 4;
}

template <class T>
double value_at(const uint8_t* bytes) {
  T value;
  std::memcpy(&value, bytes, sizeof value);
  return static_cast<double>(value);
}

double value_of(const uint8_t* bytes, char kind) {
  if (kind == 'i') return value_at<int32_t>(bytes);
  if (kind == 'u') return value_at<uint32_t>(bytes);
  if (kind == 'f') return value_at<float>(bytes);
  return kind == 'd' ? value_at<double>(bytes) : value_at<uint8_t>(bytes);
}

template <class T>
void put_at(uint8_t* bytes, double number) {
  const T value = static_cast<T>(number);
  std::memcpy(bytes, &value, sizeof value);
}

void put_value(uint8_t* bytes, char kind, double number) {
  if (kind == 'i') return put_at<int32_t>(bytes, number);
  if (kind == 'u') return put_at<uint32_t>(bytes, number);
  if (kind == 'f') return put_at<float>(bytes, number);
  return kind == 'd' ? put_at<double>(bytes, number) : put_at<uint8_t>(bytes, number);
}

// Small values lie in the attribute, others behind a pointer; the numbers of all follow one another.
template <class Attribute>
auto bytes_of(Attribute& attribute, std::string_view kinds) {
  using Byte = std::conditional_t<std::is_const_v<Attribute>, const uint8_t, uint8_t>;
  return kinds.size() == 1 ? reinterpret_cast<Byte*>(&attribute.uc) : static_cast<Byte*>(attribute.rawptr);
}

files::Metadatum entry_of(const exr_attribute_t& attribute) {
  files::Metadatum entry{attribute.name, attribute.type_name, {}, {}};
  if (attribute.type == EXR_ATTR_STRING) {
    entry.texts.emplace_back(attribute.string->str, static_cast<size_t>(attribute.string->length));
  } else if (attribute.type == EXR_ATTR_STRING_VECTOR) {
    const exr_attr_string_vector_t& list = *attribute.stringvector;
    for (int32_t i = 0; i < list.n_strings; ++i)
      entry.texts.emplace_back(list.strings[i].str, static_cast<size_t>(list.strings[i].length));
  } else if (attribute.type == EXR_ATTR_FLOAT_VECTOR) {
    const exr_attr_float_vector_t& list = *attribute.floatvector;
    entry.numbers.assign(list.arr, list.arr + list.length);
  } else if (attribute.type == EXR_ATTR_OPAQUE) {
    const auto* const bytes = static_cast<const char*>(attribute.opaque->packed_data);
    entry.texts.emplace_back(bytes, static_cast<size_t>(attribute.opaque->size));
  } else if (const auto kinds = files::numbers_of_type(entry.type)) {
    const uint8_t* bytes = bytes_of(attribute, *kinds);
    for (const char kind : *kinds) {
      entry.numbers.push_back(value_of(bytes, kind));
      bytes += size_of(kind);
    }
  }
  return entry;
}

// What every file has, and mostly as here.
bool is_usual(const files::Metadatum& entry) {
  return (entry.name == "screenWindowCenter" && entry.numbers == std::vector<double>{0, 0}) ||
         (entry.name == "screenWindowWidth" && entry.numbers == std::vector<double>{1});
}

files::Metadata metadata_of(exr_const_context_t file, int part) {
  files::Metadata metadata;
  int32_t count = 0;
  if (exr_get_attribute_count(file, part, &count) != EXR_ERR_SUCCESS) return metadata;
  for (int32_t i = 0; i < count; ++i) {
    const exr_attribute_t* attribute = nullptr;
    const exr_result_t found =
        exr_get_attribute_by_index(file, part, EXR_ATTR_LIST_SORTED_ORDER, i, &attribute);
    if (found != EXR_ERR_SUCCESS || files::is_storage(attribute->name)) continue;
    files::Metadatum entry = entry_of(*attribute);
    if (entry.name == "comments" && !entry.texts.empty())
      entry.texts[0] = files::without_color_note(entry.texts[0]);
    const bool empty = entry.texts == std::vector<std::string>{""} && entry.name == "comments";
    if (!empty && files::is_sound(entry) && !is_usual(entry)) metadata.set(std::move(entry));
  }
  return metadata;
}

exr_result_t set_numbers(exr_context_t file, int part, const files::Metadatum& entry,
                         std::string_view kinds) {
  if (kinds.front() == '*') {
    const std::vector<float> values(entry.numbers.begin(), entry.numbers.end());
    return exr_attr_set_float_vector(file, part, entry.name.c_str(), static_cast<int32_t>(values.size()),
                                     values.data());
  }
  exr_attribute_t* attribute = nullptr;
  const exr_result_t made =
      exr_attr_declare_by_type(file, part, entry.name.c_str(), entry.type.c_str(), &attribute);
  if (made != EXR_ERR_SUCCESS) return made;
  uint8_t* bytes = bytes_of(*attribute, kinds);
  for (size_t i = 0; i < kinds.size(); ++i) {
    put_value(bytes, kinds[i], entry.numbers[i]);
    bytes += size_of(kinds[i]);
  }
  return EXR_ERR_SUCCESS;
}

exr_result_t set_texts(exr_context_t file, int part, const files::Metadatum& entry) {
  const char* const name = entry.name.c_str();
  if (entry.type == "string") return exr_attr_set_string(file, part, name, entry.texts[0].c_str());
  if (entry.type == "stringvector") {
    std::vector<const char*> texts;
    texts.reserve(entry.texts.size());
    for (const std::string& text : entry.texts) texts.push_back(text.c_str());
    return exr_attr_set_string_vector(file, part, name, static_cast<int32_t>(texts.size()), texts.data());
  }
  return exr_attr_set_user(file, part, name, entry.type.c_str(), static_cast<int32_t>(entry.texts[0].size()),
                           entry.texts[0].data());
}

}  // namespace

std::vector<files::Metadata> read_metadata(const std::string& path) {
  std::vector<files::Metadata> parts;
  exr_context_t file = nullptr;
  exr_context_initializer_t settings = EXR_DEFAULT_CONTEXT_INITIALIZER;
  settings.error_handler_fn = keep_silent;
  if (exr_start_read(&file, path.c_str(), &settings) != EXR_ERR_SUCCESS) return parts;
  int count = 0;
  if (exr_get_count(file, &count) != EXR_ERR_SUCCESS) count = 0;
  try {
    for (int part = 0; part < count; ++part) parts.push_back(metadata_of(file, part));
  } catch (...) {
    exr_finish(&file);
    throw;
  }
  exr_finish(&file);
  return parts;
}

void add_attribute(exr_context_t file, int part, const files::Metadatum& entry) {
  if (entry.numbers.empty() && entry.texts.empty()) return;  // an empty list, which the core does not take
  const auto kinds = files::numbers_of_type(entry.type);
  if (!files::is_sound(entry))
    throw std::runtime_error("metadata \"" + entry.name + "\": no value of its type");
  const exr_result_t result = kinds ? set_numbers(file, part, entry, *kinds) : set_texts(file, part, entry);
  if (result == EXR_ERR_SUCCESS) return;
  if (result == EXR_ERR_OUT_OF_MEMORY) check(result);
  throw std::runtime_error("metadata \"" + entry.name + "\": " + exr_get_default_error_message(result));
}

}  // namespace host::writer::exr
