#include <qv/io/claim.h>
#include <qv/io/image_read.h>
#include <qv/io/pixel_memory.h>
#include <qv/io/reader.h>

#include <exception>
#include <new>

namespace qv {

namespace {

void read_pixels(OIIO::ImageInput& input, const io::FileAttributes& file, ImageRead& result) {
  const OIIO::ImageSpec& spec = input.spec();
  result.width = spec.width;
  result.height = spec.height;
  result.channels = spec.nchannels;
  if (spec.depth > 1) {
    result.error = "a volume of " + std::to_string(spec.depth) + " slices is not an image";
    return;
  }
  const std::optional<size_t> count = io::float_count(spec.width, spec.height, spec.nchannels);
  if (!count) throw std::bad_alloc();
  result.error = io::refusal(spec, input.format_name(), file);
  if (!result.error.empty()) return;
  result.pixels.reserve(*count);
  prefer_huge_pages(result.pixels.data(), *count * sizeof(float));
  result.pixels.resize(*count);
  if (!input.read_image(0, 0, 0, result.channels, OIIO::TypeFloat, result.pixels.data()))
    result.error = io::take_error(input);
  input.close();
}

}  // namespace

ImageRead oiio_read_float(const std::string& path) {
  ImageRead result;
  try {
    const io::FileAttributes attributes = io::file_attributes(path);
    const auto input = io::open_reader(path, attributes, 0, result.error);
    if (input) read_pixels(*input, attributes, result);
  } catch (const std::bad_alloc&) {
    result.error = "out of memory";
  } catch (const std::exception& failure) {
    result.error = failure.what();
  }
  return result;
}

}  // namespace qv
