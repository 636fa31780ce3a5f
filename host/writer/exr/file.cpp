#include "host/writer/exr/file.h"

#include "host/writer/exr/attributes.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>

namespace host::writer::exr {
namespace {

// What went wrong is said by the codes that come back.
void keep_silent(exr_const_context_t /*context*/, exr_result_t /*code*/, const char* /*text*/) {}

// The core goes back for the table of chunks alone; all else comes in order. No exception may pass through
// it.
int64_t put(exr_const_context_t /*context*/, void* content, const void* from, uint64_t size, uint64_t offset,
            exr_stream_error_func_ptr_t /*fail*/) {
  try {
    auto& bytes = *static_cast<std::vector<unsigned char>*>(content);
    const auto* const begin = static_cast<const unsigned char*>(from);
    if (offset > bytes.size()) bytes.resize(offset);
    const auto known = static_cast<size_t>(std::min<uint64_t>(size, bytes.size() - offset));
    if (known > 0) std::memcpy(bytes.data() + offset, begin, known);
    bytes.insert(bytes.end(), begin + known, begin + size);
    return static_cast<int64_t>(size);
  } catch (const std::exception&) {
    return -1;
  }
}

exr_attr_box2i_t box_of(const Window& window) {
  exr_attr_box2i_t box = {};
  box.min.x = window.x;
  box.min.y = window.y;
  box.max.x = window.x + window.width - 1;
  box.max.y = window.y + window.height - 1;
  return box;
}

bool needs_long_names(const Part& part) {
  constexpr size_t most = 31;
  const auto is_long = [](std::string_view name) { return name.size() > most; };
  return std::any_of(part.channels.begin(), part.channels.end(),
                     [&](const Channel& channel) { return is_long(channel.name); }) ||
         std::any_of(part.attributes.begin(), part.attributes.end(),
                     [&](const files::Metadatum& each) { return is_long(each.name) || is_long(each.type); });
}

bool by_name(const Channel& a, const Channel& b) {
  return a.name < b.name;
}

}  // namespace

void check(exr_result_t result) {
  // What is written goes to memory, see put.
  if (result == EXR_ERR_OUT_OF_MEMORY || result == EXR_ERR_WRITE_IO) throw std::bad_alloc();
  if (result != EXR_ERR_SUCCESS) throw std::runtime_error(exr_get_default_error_message(result));
}

File::File(std::span<const Part> parts, std::vector<unsigned char>& content) : parts_(parts) {
  content.clear();
  chunk_rows_.resize(parts.size());
  exr_context_initializer_t settings = EXR_DEFAULT_CONTEXT_INITIALIZER;
  settings.error_handler_fn = keep_silent;
  settings.user_data = &content;
  settings.write_fn = put;
  check(exr_start_write(&handle_, "memory", EXR_WRITE_FILE_DIRECTLY, &settings));
  try {
    if (std::any_of(parts.begin(), parts.end(), needs_long_names))
      check(exr_set_longname_support(handle_, 1));
    for (const Part& part : parts) add(part);
    check(exr_write_header(handle_));
    for (size_t i = 0; i < parts.size(); ++i)
      check(exr_get_scanlines_per_chunk(handle_, static_cast<int>(i), &chunk_rows_[i]));
  } catch (...) {
    exr_finish(&handle_);
    throw;
  }
}

File::~File() {
  exr_finish(&handle_);
}

void File::add(const Part& part) {
  if (!std::is_sorted(part.channels.begin(), part.channels.end(), by_name))
    throw std::invalid_argument("channels are not in the order of their names");
  int index = 0;
  check(exr_add_part(handle_, part.name.empty() ? nullptr : part.name.c_str(), EXR_STORAGE_SCANLINE, &index));
  const exr_attr_box2i_t display = box_of(part.display), data = box_of(part.data);
  const exr_attr_v2f_t centre = {};
  check(exr_initialize_required_attr(handle_, index, &display, &data, part.pixel_aspect, &centre, 1,
                                     EXR_LINEORDER_INCREASING_Y, static_cast<exr_compression_t>(part.codec)));
  for (const Channel& channel : part.channels)
    check(exr_add_channel(handle_, index, channel.name.c_str(),
                          channel.type == Type::half ? EXR_PIXEL_HALF : EXR_PIXEL_FLOAT,
                          EXR_PERCEPTUALLY_LOGARITHMIC, 1, 1));
  for (const files::Metadatum& each : part.attributes) add_attribute(handle_, index, each);
  if (is_dwa(part))
    check(exr_attr_set_float(handle_, index, "dwaCompressionLevel", static_cast<float>(level_of(part))));
}

void File::append(int part, int32_t row, std::span<const uint8_t> packed) {
  const int32_t y = parts_[static_cast<size_t>(part)].data.y + row;
  check(exr_write_scanline_chunk(handle_, part, y, packed.data(), packed.size()));
}

}  // namespace host::writer::exr
