#include <qv/io/decode_request.h>
#include <qv/io/general/claim.h>
#include <qv/io/general/images.h>
#include <qv/io/general/reader.h>
#include <qv/io/general/subimages.h>
#include <qv/io/half.h>
#include <qv/io/pixel_memory.h>

#include <algorithm>
#include <exception>
#include <optional>
#include <utility>

namespace qv::io::general {

namespace {

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
  const DecodeClock::time_point widening = DecodeClock::now();
  half_to_float(halves, pixels, count);
  out.convert_ms = ms_since(widening);
  return true;
}

// Leaves `out` at decode_other unless all of it succeeds.
void read_plain(OIIO::ImageInput& input, const DecodeRequest& request, DecodeResult& out) {
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
  bool read = decode_exr(input, request.path, request.threads, pixels.get(), placing_ms);
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

}  // namespace

void decode_plain(OIIO::ImageInput* open, const std::string& path, int threads, DecodeResult& out) {
  const DecodeRequest request = begin_decode(path, threads, out);
  try {
    if (open) {
      open->threads(std::max(threads, 0));
      if (open->seek_subimage(0, 0)) read_plain(*open, request, out);
    } else if (const auto input = open_reader(path, request.file, threads, out.error)) {
      read_plain(*input, request, out);
    } else {
      out.status = decode_failed;
    }
  } catch (const std::exception&) {
    out.status = decode_other;
    out.error.clear();
  }
}

}  // namespace qv::io::general
