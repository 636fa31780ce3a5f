#include <qv/io/general/claim.h>
#include <qv/io/general/images.h>
#include <qv/io/general/reader.h>
#include <qv/io/pixel_memory.h>

#include <exception>
#include <new>

namespace qv::io::general {

namespace {

void read_pixels(OIIO::ImageInput& input, const FileAttributes& file, ImageRead& result) {
  const OIIO::ImageSpec& spec = input.spec();
  result.width = spec.width;
  result.height = spec.height;
  result.channels = spec.nchannels;
  if (spec.depth > 1) {
    result.error = "a volume of " + std::to_string(spec.depth) + " slices is not an image";
    return;
  }
  const std::optional<size_t> count = float_count(spec.width, spec.height, spec.nchannels);
  if (!count) throw std::bad_alloc();
  result.error = refusal(spec, input.format_name(), file);
  if (!result.error.empty()) return;
  result.pixels.reserve(*count);
  prefer_huge_pages(result.pixels.data(), *count * sizeof(float));
  result.pixels.resize(*count);
  if (!input.read_image(0, 0, 0, result.channels, OIIO::TypeFloat, result.pixels.data()))
    result.error = take_error(input);
  input.close();
}

}  // namespace

ImageRead read_float(const std::string& path) {
  ImageRead result;
  try {
    const FileAttributes attributes = file_attributes(path);
    const auto input = open_reader(path, attributes, 0, result.error);
    if (input) read_pixels(*input, attributes, result);
  } catch (const std::bad_alloc&) {
    result.error = "out of memory";
  } catch (const std::exception& failure) {
    result.error = failure.what();
  }
  return result;
}

}  // namespace qv::io::general
