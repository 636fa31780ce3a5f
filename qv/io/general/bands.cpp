#include <qv/io/general/bands.h>
#include <qv/io/general/claim.h>
#include <qv/io/general/reader.h>
#include <qv/io/pixel_memory.h>

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <new>
#include <string_view>

#include <OpenImageIO/parallel.h>

namespace qv::io::general {

namespace {

// Rows that OpenEXR compresses as one block, for the purpose of reading several ranges of it.
int block_rows(std::string_view compression) {
  if (compression.starts_with("dwab")) return 256;
  if (compression.starts_with("zips") || compression.starts_with("rle")) return 1;
  if (compression.starts_with("piz") || compression.starts_with("dwaa") || compression.starts_with("b44"))
    return 32;
  return 16;
}

bool is_openexr(const OIIO::ImageInput& input) {
  return std::string_view(input.format_name()) == "openexr";
}

bool is_whole(const Read& read, const OIIO::ImageSpec& spec) {
  return read.chbegin == 0 && read.chend == spec.nchannels;
}

size_t row_values(const Read& read) {
  return static_cast<size_t>(read.width) * static_cast<size_t>(read.chend - read.chbegin);
}

// Rows [begin, end) of the layer, counted from its top; whole tiles of a tiled one.
bool read_rows(OIIO::ImageInput& input, const OIIO::ImageSpec& spec, const Read& read, int begin, int end,
               const OIIO::TypeDesc& type, void* pixels) {
  const int top = spec.y + begin, bottom = spec.y + end;
  if (spec.tile_width == 0)
    return input.read_scanlines(read.subimage, 0, top, bottom, 0, read.chbegin, read.chend, type, pixels);
  return input.read_tiles(read.subimage, 0, spec.x, spec.x + spec.width, top, bottom, spec.z, spec.z + 1,
                          read.chbegin, read.chend, type, pixels);
}

// The same into their place in the layer's memory.
bool read_rows(OIIO::ImageInput& input, const OIIO::ImageSpec& spec, const Read& read, int begin, int end,
               const Layer& layer) {
  const size_t at = row_values(read) * static_cast<size_t>(begin);
  if (layer.halves)
    return read_rows(input, spec, read, begin, end, OIIO::TypeUnknown, layer.halves.get() + at);
  const bool as_stored = common_format(spec, read.chbegin, read.chend) == OIIO::TypeFloat;
  return read_rows(input, spec, read, begin, end, as_stored ? OIIO::TypeUnknown : OIIO::TypeFloat,
                   layer.floats.get() + at);
}

// Every range of every block of rows in turn.
bool read_ranges(OIIO::ImageInput& input, const OIIO::ImageSpec& spec, const LayerGroup& group, int begin,
                 int end) {
  const int block =
      group.reads.size() == 1 ? end - begin : block_rows(spec.get_string_attribute("compression"));
  for (int y = begin, next = 0; y < end; y = next) {
    next = y + std::min(block, end - y);
    for (size_t i = 0; i < group.reads.size(); ++i)
      if (!read_rows(input, spec, group.reads[i], y, next, group.pixels[i])) return false;
  }
  return true;
}

// Copies the range `read` of `pixels` pixels out of those of `all`.
void pick(const Read& read, const Read& all, size_t pixels, const float* from, float* to) {
  const auto channels = static_cast<size_t>(read.chend - read.chbegin);
  const auto stride = static_cast<size_t>(all.chend);
  from += read.chbegin;
  for (size_t i = 0; i < pixels; ++i, from += stride, to += channels) std::copy_n(from, channels, to);
}

// OpenImageIO 2.4 reads 64-bit scanlines of a TIFF as zeros, and without an error, where the rows asked for
// are not whole strips or are a single row. One call of read_image asks for the right ones.
bool is_whole_only(const OIIO::ImageInput& input, const OIIO::ImageSpec& spec) {
  return !is_openexr(input) && spec.format.basesize() == 8;
}

// Some rows with all their channels at a time, and the ranges out of them: a reader other than
// OpenEXR's saves nothing on part of the channels, and the one for TIFF in 2.4 writes beyond such a
// part when it multiplies by alpha.
bool read_and_pick(OIIO::ImageInput& input, const OIIO::ImageSpec& spec, const LayerGroup& group, int begin,
                   int end) {
  const bool at_once = is_whole_only(input, spec);
  const int step = at_once ? end - begin : spec.tile_width > 0 ? std::max(1, spec.tile_height) : 16;
  Read all = group.reads.front();
  all.chbegin = 0;
  all.chend = spec.nchannels;
  const auto count = float_count(spec.width, std::min(step, end - begin), spec.nchannels);
  if (!count) throw std::bad_alloc();
  const auto scratch = uninitialised<float>(*count);
  for (int y = begin, next = 0; y < end; y = next) {
    next = y + std::min(step, end - y);
    const bool read = at_once
                          ? input.read_image(all.subimage, 0, 0, all.chend, OIIO::TypeFloat, scratch.get())
                          : read_rows(input, spec, all, y, next, OIIO::TypeFloat, scratch.get());
    if (!read) return false;
    for (size_t i = 0; i < group.reads.size(); ++i) {
      float* rows = group.pixels[i].floats.get() + row_values(group.reads[i]) * static_cast<size_t>(y);
      pick(group.reads[i], all, static_cast<size_t>(all.width) * static_cast<size_t>(next - y), scratch.get(),
           rows);
    }
  }
  return true;
}

// Rows [begin, end) of every range; `begin` is the first row of a block.
bool read_group(OIIO::ImageInput& input, const OIIO::ImageSpec& spec, const LayerGroup& group, int begin,
                int end) {
  const bool whole = group.reads.size() == 1 && is_whole(group.reads.front(), spec);
  const bool direct = is_openexr(input) || (whole && !is_whole_only(input, spec));
  return direct ? read_ranges(input, spec, group, begin, end) : read_and_pick(input, spec, group, begin, end);
}

bool read_band(const std::string& path, const OIIO::ImageSpec& spec, const LayerGroup& group, int begin,
               int end, std::string& error) {
  try {
    const auto input = open_reader(path, 1, error);
    if (!input) return false;
    const bool done = read_group(*input, spec, group, begin, end);
    if (!done) error = take_error(*input);
    input->close();
    return done;
  } catch (const std::exception& failure) {
    error = failure.what();
    return false;
  }
}

}  // namespace

Bands bands_of(const OIIO::ImageSpec& spec, int threads) {
  if (threads == 1 || spec.tile_width > 0 || spec.deep || spec.height < 128) return {1, spec.height};
  const std::string compression(spec.get_string_attribute("compression"));
  const int block = compression.rfind("dwab", 0) == 0 ? 256 : 32;
  const int count = std::max(1, std::min(spec.height / (2 * block), band_limit(threads)));
  if (count == 1) return {1, spec.height};
  const int rows = (spec.height - 1) / count + 1;
  return {count, ((rows - 1) / block + 1) * block};
}

Layer make_layer(const OIIO::ImageInput& input, const OIIO::ImageSpec& spec, const Read& read) {
  const auto count = float_count(read.width, read.height, int64_t{read.chend} - read.chbegin);
  if (!count) throw std::bad_alloc();
  const bool half =
      common_format(spec, read.chbegin, read.chend) == OIIO::TypeHalf && is_openexr(input) && !spec.deep;
  if (!fits_memory(uint64_t{*count} * (half ? sizeof(uint16_t) : sizeof(float)))) throw std::bad_alloc();
  if (half) return {nullptr, uninitialised<uint16_t>(*count)};
  return {uninitialised<float>(*count), nullptr};
}

bool reads_together(const OIIO::ImageInput& input, const OIIO::ImageSpec& spec) {
  return !spec.deep && (spec.tile_width == 0 || !is_openexr(input));
}

bool read_in_bands(OIIO::ImageInput& input, const std::string& path, const OIIO::ImageSpec& spec,
                   const LayerGroup& group, const Bands& bands, std::string& err) {
  const Read& first = group.reads.front();
  if (spec.deep) {
    err = deep_text;
    return false;
  }
  if (bands.count == 1 || is_whole_only(input, spec)) {
    if (read_group(input, spec, group, 0, first.height)) return true;
    err = take_error(input);
    return false;
  }
  std::mutex mutex;
  std::atomic<bool> good = true;
  const int tasks = (first.height - 1) / bands.rows + 1;
  const auto task = [&](int64_t index) {
    const int begin = static_cast<int>(index) * bands.rows;
    std::string error;
    if (read_band(path, spec, group, begin, begin + std::min(bands.rows, first.height - begin), error))
      return;
    const std::lock_guard lock(mutex);
    err = error;
    good = false;
  };
  OIIO::parallel_for(int64_t{0}, int64_t{tasks}, task,
                     OIIO::paropt(bands.count, OIIO::paropt::SplitDir::Y, 1));
  return good;
}

}  // namespace qv::io::general
