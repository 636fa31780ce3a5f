#include "host/writer/exr/packer.h"

#include "host/writer/exr/dwa.h"
#include "host/writer/exr/values.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

#include <OpenEXR/openexr.h>
#include <OpenEXR/openexr_encode.h>
#include <libdeflate.h>

namespace host::writer::exr {
namespace {

const float* row_of(const Channel& channel, int32_t row) {
  return channel.first + channel.row * row;
}

void count_row(const Part& part, int32_t row, Extremes& found) {
  for (ptrdiff_t x = 0; x < part.data.width; ++x) {
    bool held = false, infinite = false, nan = false;
    for (const Channel& channel : part.channels) {
      const float size = std::abs(row_of(channel, row)[x * channel.pixel]);
      nan = nan || std::isnan(size);
      infinite = infinite || std::isinf(size);
      held = held || (channel.type == Type::half && std::isfinite(size) && size > most_half);
    }
    found.held += held ? 1 : 0;
    found.infinite += infinite ? 1 : 0;
    found.not_a_number += nan ? 1 : 0;
  }
}

// A row as a chunk holds it, its channels one after the other.
void lay_out_row(const Part& part, int32_t row, uint16_t* to, Extremes& found) {
  const auto width = static_cast<size_t>(part.data.width);
  bool special = false;
  for (const Channel& channel : part.channels) {
    const float* const from = row_of(channel, row);
    if (channel.type == Type::half) {
      special |= to_halves(from, channel.pixel, width, to);
      to += width;
    } else {
      special |= to_words(from, channel.pixel, width, to);
      to += 2 * width;
    }
  }
  if (special) count_row(part, row, found);
}

void lay_out(const Part& part, const Chunk& chunk, uint8_t* to, Extremes& found) {
  for (int32_t row = chunk.row; row < chunk.row + chunk.rows; ++row, to += row_bytes(part))
    lay_out_row(part, row, reinterpret_cast<uint16_t*>(to), found);
}

// The macro names the first field alone, of which newer cores take the struct's size.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
exr_encode_pipeline_t new_pipeline() {
  return EXR_ENCODE_PIPELINE_INITIALIZER;
}
#pragma GCC diagnostic pop

// OpenEXR's own encoder for one chunk, whose rows are laid out already.
class CoreEncoder {
 public:
  CoreEncoder(const File& file, const Part& part, const Chunk& chunk, std::span<const uint8_t> rows)
      : part_(chunk.part), rows_(rows) {
    exr_chunk_info_t info = {};
    check(exr_write_scanline_chunk_info(file.handle(), part_, part.data.y + chunk.row, &info));
    check(exr_encoding_initialize(file.handle(), part_, &info, &pipeline_));
    for (int i = 0; i < pipeline_.channel_count; ++i) {
      exr_coding_channel_info_t& channel = pipeline_.channels[i];
      // A signed byte to the library, though it is a size.
      const auto bytes = static_cast<uint8_t>(channel.bytes_per_element);
      channel.user_bytes_per_element = bytes;
      channel.user_data_type = channel.data_type;
      channel.user_pixel_stride = bytes;
      channel.user_line_stride = bytes * channel.width;
      channel.encode_from_ptr = rows.data();  // not looked at, but it must be there
    }
  }
  ~CoreEncoder() {
    exr_encoding_destroy(pipeline_.context, &pipeline_);
  }
  CoreEncoder(const CoreEncoder&) = delete;
  CoreEncoder& operator=(const CoreEncoder&) = delete;

  // Lasts as long as the encoder.
  std::span<const uint8_t> run() {
    check(exr_encoding_choose_default_routines(pipeline_.context, part_, &pipeline_));
    pipeline_.encoding_user_data = &rows_;
    pipeline_.convert_and_pack_fn = fill;
    // The core's own would only take the chunk that is next in the file.
    pipeline_.yield_until_ready_fn = go_on;
    pipeline_.write_fn = go_on;
    check(exr_encoding_run(pipeline_.context, part_, &pipeline_));
    return {static_cast<const uint8_t*>(pipeline_.compressed_buffer), pipeline_.compressed_bytes};
  }

 private:
  static exr_result_t fill(exr_encode_pipeline_t* pipeline) {
    const auto& rows = *static_cast<const std::span<const uint8_t>*>(pipeline->encoding_user_data);
    std::copy(rows.begin(), rows.end(), static_cast<uint8_t*>(pipeline->packed_buffer));
    pipeline->packed_bytes = rows.size();
    return EXR_ERR_SUCCESS;
  }

  static exr_result_t go_on(exr_encode_pipeline_t* /*pipeline*/) {
    return EXR_ERR_SUCCESS;
  }

  int part_;
  std::span<const uint8_t> rows_;
  exr_encode_pipeline_t pipeline_ = new_pipeline();
};

uint8_t* fit(Bytes& bytes, size_t size) {
  if (bytes.size() < size) bytes.resize(size);
  return bytes.data();
}

}  // namespace

void Packer::Free::operator()(libdeflate_compressor* compressor) const {
  libdeflate_free_compressor(compressor);
}

// Rows are laid out, parted into bytes and told apart one by one, and then packed together. 0 when what
// comes of it has no room.
size_t Packer::deflate(const Part& part, const Chunk& chunk, std::span<uint8_t> to, Extremes& found) {
  const int level = static_cast<int>(level_of(part));
  if (!compressor_ || level != level_) compressor_.reset(libdeflate_alloc_compressor(level));
  if (!compressor_) throw std::bad_alloc();
  level_ = level;
  const size_t bytes = row_bytes(part), size = bytes * static_cast<size_t>(chunk.rows);
  auto* const row_words = reinterpret_cast<uint16_t*>(fit(row_, bytes));
  uint8_t* const planes = fit(planes_, size);
  Differences differences(planes, size);
  for (int32_t row = chunk.row; row < chunk.row + chunk.rows; ++row) {
    lay_out_row(part, row, row_words, found);
    differences.add(row_words, bytes / 2);
  }
  differences.finish();
  return libdeflate_zlib_compress(compressor_.get(), planes, size, to.data(), to.size());
}

std::span<const uint8_t> Packer::pack(const File& file, const Part& part, const Chunk& chunk, Bytes& to,
                                      Extremes& found) {
  const size_t size = row_bytes(part) * static_cast<size_t>(chunk.rows);
  // libdeflate wants some room behind what it writes.
  constexpr size_t room = 64;
  uint8_t* const bytes = fit(to, size + room);
  const auto kept = [&](std::span<const uint8_t> packed) -> std::span<const uint8_t> {
    if (packed.size() >= size) return {bytes, size};
    std::copy(packed.begin(), packed.end(), bytes);
    return {bytes, packed.size()};
  };
  Extremes again;  // of what is laid out a second time, to be stored
  switch (part.codec) {
    case Codec::none:
      lay_out(part, chunk, bytes, found);
      return {bytes, size};
    case Codec::zips:
    case Codec::zip:
      if (const size_t packed = deflate(part, chunk, {bytes, size + room}, found);
          packed > 0 && packed < size)
        return {bytes, packed};
      lay_out(part, chunk, bytes, again);
      return {bytes, size};
    case Codec::dwaa:
    case Codec::dwab:
      lay_out(part, chunk, bytes, found);
      return kept(pack_dwa(part, chunk.rows, {bytes, size}, dwa_));
    default:
      lay_out(part, chunk, bytes, found);
      return kept(CoreEncoder(file, part, chunk, {bytes, size}).run());
  }
}

}  // namespace host::writer::exr
