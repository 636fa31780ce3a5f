#include <qv/io/claim.h>
#include <qv/io/decode.h>
#include <qv/io/exr/images.h>
#include <qv/io/file_attributes.h>
#include <qv/io/half.h>
#include <qv/io/pixel_memory.h>
#include <qv/io/reader.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>
#include <vector>

namespace qv::io {

namespace {

using Clock = std::chrono::steady_clock;

double ms_since(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// What is asked for, and what is known of it.
struct Request {
  const std::string& path;
  int threads = 0;
  FileAttributes file;
  Clock::time_point start;
};

// Reads the image by the general reader. Halves are read into the last half of the pixels' own memory: no
// second buffer is faulted in.
bool read_pixels(OIIO::ImageInput& input, bool half, bool as_stored, size_t count, float* pixels,
                 DecodeResult& out) {
  auto* halves = reinterpret_cast<uint16_t*>(pixels) + (half ? count : 0);
  if (!input.read_image(0, 0, 0, 4, as_stored ? OIIO::TypeUnknown : OIIO::TypeFloat, halves)) {
    input.geterror();
    return false;
  }
  if (!half) return true;
  const Clock::time_point widening = Clock::now();
  half_to_float(halves, pixels, count);
  out.convert_ms = ms_since(widening);
  return true;
}

// Leaves `out` at decode_other unless all of it succeeds.
void read_plain(OIIO::ImageInput& input, const Request& request, DecodeResult& out) {
  const auto spec = std::make_shared<OIIO::ImageSpec>(input.spec());
  const bool plain = is_plain(*spec) && !input.seek_subimage(1, 0);
  input.geterror();
  if (!plain || !input.seek_subimage(0, 0)) return;
  const std::optional<size_t> count = float_count(spec->width, spec->height, 4);
  if (!count || !refusal(*spec, input.format_name(), request.file).empty()) return;
  auto pixels = uninitialised<float>(*count);

  const OIIO::TypeDesc format = common_format(*spec, 0, 4);
  const bool half = format == OIIO::TypeHalf;
  double placing_ms = 0;
  bool read = exr::decode(input, request.path, request.threads, pixels.get(), placing_ms);
  if (read) {
    out.convert_ms = half ? placing_ms : 0;
  } else {
    read = read_pixels(input, half, half || format == OIIO::TypeFloat, *count, pixels.get(), out);
  }
  out.read_ms = ms_since(request.start) - out.convert_ms;
  if (!read) return;
  input.close();
  out.spec = spec;
  out.pixels = std::move(pixels);
  out.width = spec->width;
  out.height = spec->height;
  out.status = decode_done;
}

Request begin(const std::string& path, int threads, DecodeResult& out) {
  out = {};
  const Clock::time_point asking = Clock::now();
  const FileAttributes attributes = file_attributes(path);
  out.has_mtime = attributes.found;
  out.mtime_ns = attributes.mtime_ns;
  const Clock::time_point start = Clock::now();
  out.stat_s = std::chrono::duration<double>(start - asking).count();
  out.status = decode_other;
  return {path, threads, attributes, start};
}

}  // namespace

bool is_plain(const OIIO::ImageSpec& spec) {
  const int full_width = spec.full_width ? spec.full_width : spec.width;
  const int full_height = spec.full_height ? spec.full_height : spec.height;
  return !spec.deep && spec.depth <= 1 && spec.channelnames == std::vector<std::string>{"R", "G", "B", "A"} &&
         spec.nchannels == 4 && spec.x == spec.full_x && spec.y == spec.full_y && spec.width == full_width &&
         spec.height == full_height;
}

void decode_plain(const std::string& path, int threads, DecodeResult& out) {
  const Request request = begin(path, threads, out);
  try {
    if (const auto input = open_reader(path, request.file, threads, out.error)) {
      read_plain(*input, request, out);
    } else {
      out.status = decode_failed;
    }
  } catch (const std::exception&) {
    out.status = decode_other;
    out.error.clear();
  }
}

void decode_plain(OIIO::ImageInput& input, const std::string& path, int threads, DecodeResult& out) {
  const Request request = begin(path, threads, out);
  try {
    input.threads(std::max(threads, 0));
    if (input.seek_subimage(0, 0)) read_plain(input, request, out);
  } catch (const std::exception&) {
    out.status = decode_other;
  }
}

}  // namespace qv::io
