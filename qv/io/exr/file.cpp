#include <qv/io/exr/file.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <string_view>
#include <utility>

#include <OpenEXR/openexr.h>

namespace qv::io::exr {

namespace {

// What went wrong is told by whom the general reader asks.
void keep_silent(exr_const_context_t, exr_result_t, const char*) {}

using Memory = std::span<const uint8_t>;

int64_t size_of(exr_const_context_t, void* file) {
  return static_cast<int64_t>(static_cast<const Memory*>(file)->size());
}

int64_t copy_out(exr_const_context_t, void* file, void* to, uint64_t count, uint64_t offset,
                 exr_stream_error_func_ptr_t) {
  const Memory bytes = *static_cast<const Memory*>(file);
  if (offset >= bytes.size()) return 0;
  const auto there = static_cast<size_t>(std::min<uint64_t>(count, bytes.size() - offset));
  if (there > 0) std::memcpy(to, bytes.data() + offset, there);
  return static_cast<int64_t>(there);
}

struct Compression {
  Codec codec;
  std::string_view name;
};

std::optional<Compression> compression_of(exr_compression_t compression) {
  switch (compression) {
    case EXR_COMPRESSION_NONE:
      return Compression{Codec::none, "none"};
    case EXR_COMPRESSION_RLE:
      return Compression{Codec::rle, "rle"};
    case EXR_COMPRESSION_ZIPS:
      return Compression{Codec::zip, "zips"};
    case EXR_COMPRESSION_ZIP:
      return Compression{Codec::zip, "zip"};
    default:
      return std::nullopt;
  }
}

bool set_channels(const exr_attr_chlist_t& list, Part& part) {
  for (int i = 0; i < list.num_channels; ++i) {
    const exr_attr_chlist_entry_t& entry = list.entries[i];
    if (entry.x_sampling != 1 || entry.y_sampling != 1 || !entry.name.str) return false;
    Channel channel = {entry.name.str, Type::uint, 4, part.pixel_bytes};
    if (entry.pixel_type == EXR_PIXEL_HALF) {
      channel.type = Type::half;
      channel.bytes = 2;
    } else if (entry.pixel_type == EXR_PIXEL_FLOAT) {
      channel.type = Type::real;
    } else if (entry.pixel_type != EXR_PIXEL_UINT) {
      return false;
    }
    part.pixel_bytes += channel.bytes;
    part.channels.push_back(std::move(channel));
  }
  return !part.channels.empty();
}

// The size of a window that is not empty.
bool set_size(const exr_attr_box2i_t& window, int32_t& width, int32_t& height) {
  const int64_t across = int64_t{window.max.x} - window.min.x + 1;
  const int64_t down = int64_t{window.max.y} - window.min.y + 1;
  constexpr int64_t most = std::numeric_limits<int32_t>::max();
  if (across < 1 || down < 1 || across > most || down > most) return false;
  width = static_cast<int32_t>(across);
  height = static_cast<int32_t>(down);
  return true;
}

bool set_window(const exr_attr_box2i_t& window, Part& part) {
  part.x = window.min.x;
  part.y = window.min.y;
  return set_size(window, part.width, part.height);
}

// What the pixels do not depend on.
void describe(exr_const_context_t context, Part& part) {
  exr_attr_box2i_t display = {};
  if (exr_get_display_window(context, part.index, &display) == EXR_ERR_SUCCESS &&
      set_size(display, part.display_width, part.display_height)) {
    part.display_x = display.min.x;
    part.display_y = display.min.y;
  }
  const char* name = nullptr;
  if (exr_get_name(context, part.index, &name) == EXR_ERR_SUCCESS && name) part.name = name;
  float aspect = 1;
  if (exr_get_pixel_aspect_ratio(context, part.index, &aspect) == EXR_ERR_SUCCESS) part.pixel_aspect = aspect;
}

bool set_chunk_size(exr_const_context_t context, Part& part) {
  if (!part.tiled) {
    part.chunk_width = part.width;
    return exr_get_scanlines_per_chunk(context, part.index, &part.chunk_height) == EXR_ERR_SUCCESS &&
           part.chunk_height > 0;
  }
  uint32_t width = 0, height = 0;
  exr_tile_level_mode_t levels = EXR_TILE_ONE_LEVEL;
  exr_tile_round_mode_t rounding = EXR_TILE_ROUND_DOWN;
  if (exr_get_tile_descriptor(context, part.index, &width, &height, &levels, &rounding) != EXR_ERR_SUCCESS)
    return false;
  constexpr uint32_t most = std::numeric_limits<int32_t>::max();
  part.chunk_width = static_cast<int32_t>(std::min(width, most));
  part.chunk_height = static_cast<int32_t>(std::min(height, most));
  return width > 0 && height > 0;
}

bool find(exr_const_context_t context, const Part& part, const Chunk& chunk, exr_chunk_info_t& info) {
  const exr_result_t found = part.tiled
                                 ? exr_read_tile_chunk_info(context, part.index, chunk.x / part.chunk_width,
                                                            chunk.y / part.chunk_height, 0, 0, &info)
                                 : exr_read_scanline_chunk_info(context, part.index, part.y + chunk.y, &info);
  return found == EXR_ERR_SUCCESS;
}

}  // namespace

int64_t chunks_across(const Part& part) {
  return (int64_t{part.width} - 1) / part.chunk_width + 1;
}

int64_t chunks_down(const Part& part) {
  return (int64_t{part.height} - 1) / part.chunk_height + 1;
}

Chunk chunk_at(const Part& part, int64_t across, int64_t down) {
  const auto x = static_cast<int32_t>(across * part.chunk_width);
  const auto y = static_cast<int32_t>(down * part.chunk_height);
  return {x, y, std::min(part.chunk_width, part.width - x), std::min(part.chunk_height, part.height - y)};
}

uint8_t* Bytes::fit(size_t size) {
  if (size > size_) {
    bytes_.reset();
    size_ = 0;
    bytes_.reset(new uint8_t[size]);
    size_ = size;
  }
  return bytes_.get();
}

struct File::Context {
  Memory file;  // of one in memory
  exr_context_t handle = nullptr;

  Context() = default;
  ~Context() {
    if (handle) exr_finish(&handle);
  }
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;

  bool start(const char* path, bool in_memory) {
    exr_context_initializer_t settings = {};
    settings.size = sizeof settings;
    settings.error_handler_fn = keep_silent;
    // A file whose table of chunks is not whole is mended by the general reader, or not.
    settings.flags = EXR_CONTEXT_FLAG_SILENT_HEADER_PARSE | EXR_CONTEXT_FLAG_DISABLE_CHUNK_RECONSTRUCTION;
    if (in_memory) {
      settings.user_data = &file;
      settings.read_fn = copy_out;
      settings.size_fn = size_of;
    }
    return exr_start_read(&handle, path, &settings) == EXR_ERR_SUCCESS && handle;
  }
};

File::File(std::unique_ptr<Context> context) : context_(std::move(context)) {}

File::~File() = default;

std::unique_ptr<File> File::open(const std::string& path) {
  auto context = std::make_unique<Context>();
  if (!context->start(path.c_str(), false)) return nullptr;
  return std::unique_ptr<File>(new File(std::move(context)));
}

std::unique_ptr<File> File::open(std::span<const uint8_t> file) {
  auto context = std::make_unique<Context>();
  context->file = file;
  if (!context->start("memory", true)) return nullptr;
  return std::unique_ptr<File>(new File(std::move(context)));
}

int File::parts() const {
  int count = 0;
  return exr_get_count(context_->handle, &count) == EXR_ERR_SUCCESS ? count : 0;
}

std::optional<Part> File::part(int index) const {
  exr_const_context_t context = context_->handle;
  exr_storage_t storage = EXR_STORAGE_LAST_TYPE;
  exr_compression_t compression = EXR_COMPRESSION_LAST_TYPE;
  exr_attr_box2i_t window = {};
  const exr_attr_chlist_t* channels = nullptr;
  if (exr_get_storage(context, index, &storage) != EXR_ERR_SUCCESS ||
      exr_get_compression(context, index, &compression) != EXR_ERR_SUCCESS ||
      exr_get_data_window(context, index, &window) != EXR_ERR_SUCCESS ||
      exr_get_channels(context, index, &channels) != EXR_ERR_SUCCESS || !channels)
    return std::nullopt;
  const std::optional<Compression> packing = compression_of(compression);
  if (!packing || (storage != EXR_STORAGE_SCANLINE && storage != EXR_STORAGE_TILED)) return std::nullopt;
  Part part;
  part.index = index;
  part.tiled = storage == EXR_STORAGE_TILED;
  part.codec = packing->codec;
  part.compression = packing->name;
  if (!set_window(window, part) || !set_channels(*channels, part) || !set_chunk_size(context, part))
    return std::nullopt;
  describe(context, part);
  return part;
}

bool File::has_last_chunk(const Part& part) const {
  exr_chunk_info_t info = {};
  return find(context_->handle, part, chunk_at(part, chunks_across(part) - 1, chunks_down(part) - 1), info);
}

std::string File::text(int part, const std::string& name) const {
  int32_t length = 0;
  const char* text = nullptr;
  const exr_result_t found = exr_attr_get_string(context_->handle, part, name.c_str(), &length, &text);
  return found == EXR_ERR_SUCCESS && text ? std::string(text, static_cast<size_t>(length)) : std::string();
}

std::span<const uint8_t> File::read(const Part& part, const Chunk& chunk, Bytes& bytes) const {
  exr_const_context_t context = context_->handle;
  exr_chunk_info_t info = {};
  const bool found = find(context, part, chunk, info);
  const uint64_t pixels = static_cast<uint64_t>(chunk.width) * static_cast<uint64_t>(chunk.height);
  const bool fits = found && info.width == chunk.width && info.height == chunk.height &&
                    info.packed_size > 0 && info.packed_size <= info.unpacked_size &&
                    info.unpacked_size / static_cast<uint64_t>(part.pixel_bytes) == pixels &&
                    info.unpacked_size % static_cast<uint64_t>(part.pixel_bytes) == 0;
  if (!fits) return {};
  uint8_t* const packed = bytes.fit(info.packed_size);
  if (exr_read_chunk(context, part.index, &info, packed) != EXR_ERR_SUCCESS) return {};
  return {packed, static_cast<size_t>(info.packed_size)};
}

}  // namespace qv::io::exr
