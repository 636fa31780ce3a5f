#include "host/files/encode.h"

#include "host/files/made.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <stdexcept>

#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>

namespace host::files {

namespace {

enum class Container { unknown, exr, png, tiff };

Container container_of(const std::string& path) {
  std::string ending = std::filesystem::path(path).extension().string();
  for (char& c : ending) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  if (ending == ".exr") return Container::exr;
  if (ending == ".png") return Container::png;
  return ending == ".tif" || ending == ".tiff" ? Container::tiff : Container::unknown;
}

const char* writer_name(Container container) {
  return container == Container::exr ? "openexr" : container == Container::png ? "png" : "tiff";
}

OIIO::TypeDesc stored_type(Container container, OutputFile::Depth depth) {
  using Depth = OutputFile::Depth;
  switch (depth) {
    case Depth::half:
      return OIIO::TypeHalf;
    case Depth::float32:
      return OIIO::TypeFloat;
    case Depth::integer8:
      return OIIO::TypeUInt8;
    case Depth::integer16:
      return OIIO::TypeUInt16;
    case Depth::automatic:
      break;
  }
  if (container == Container::exr) return OIIO::TypeHalf;
  return container == Container::png ? OIIO::TypeUInt8 : OIIO::TypeUInt16;
}

// PNG is shown by viewers as it is stored.
bool is_srgb(const OutputFile& file, Container container) {
  using Color = OutputFile::Color;
  return file.color == Color::srgb || (file.color == Color::automatic && container == Container::png);
}

// Pixels as the file gets them: `channels` a pixel, rows top to bottom of `window`.
struct Raster {
  Box window;
  int channels = 4;
  const float* pixels = nullptr;
  std::vector<float> storage;  // behind `pixels`, unless the job's own pixels serve
};

// Cuts and extends to a window; pixels outside the job's are transparent black.
void lay_out(const WriteJob& job, Raster& raster) {
  const Box& from = job.extent.window;
  const Box shared = intersection(from, raster.window);
  const auto width = static_cast<size_t>(box_width(raster.window));
  const auto channels = static_cast<size_t>(raster.channels);
  raster.storage.assign(width * static_cast<size_t>(box_height(raster.window)) * channels, 0.0F);
  raster.pixels = raster.storage.data();
  for (int64_t y = shared[1]; y < shared[3]; ++y) {
    const float* source = job.rgba.get() + ((from[3] - 1 - y) * box_width(from) + shared[0] - from[0]) * 4;
    float* target = raster.storage.data() + (static_cast<size_t>(raster.window[3] - 1 - y) * width +
                                             static_cast<size_t>(shared[0] - raster.window[0])) *
                                                channels;
    for (int64_t x = shared[0]; x < shared[2]; ++x, source += 4, target += channels)
      std::copy_n(source, channels, target);
  }
}

float srgb_encoded(float x) {
  return x <= 0.0031308F ? x * 12.92F : 1.055F * std::pow(x, 1 / 2.4F) - 0.055F;
}

// Colour is encoded as it looks without its coverage: premultiplied values lie on another curve.
void encode_colour(Raster& raster, bool srgb, bool premultiplied, bool coverage) {
  const auto channels = static_cast<size_t>(raster.channels);
  for (size_t i = 0; i < raster.storage.size(); i += channels) {
    float* const pixel = &raster.storage[i];
    const float alpha = channels == 4 && coverage ? pixel[3] : 1.0F;
    const float divisor = alpha != 0 ? alpha : 1.0F;
    for (int c = 0; c < 3; ++c) {
      float value = pixel[c] / divisor;
      if (srgb) value = srgb_encoded(value);
      pixel[c] = premultiplied ? value * divisor : value;
    }
  }
}

// Integers have no place for a NaN: it becomes 0 rather than whatever the conversion makes of it.
void drop_not_a_number(Raster& raster) {
  for (float& value : raster.storage) value = std::isnan(value) ? 0.0F : value;
}

Raster raster_of(const WriteJob& job, Container container, bool integers) {
  const bool srgb = is_srgb(job.file, container);
  Raster raster;
  raster.channels = job.file.alpha ? 4 : 3;
  const Box format = format_box(job.extent.format);
  raster.window = container != Container::exr ? format
                  : job.file.overscan         ? job.extent.window
                                              : intersection(job.extent.window, format);
  if (is_empty(raster.window)) raster.window = {0, 0, 1, 1};  // files hold at least one pixel
  if (raster.window == job.extent.window && raster.channels == 4 && !srgb && !integers) {
    raster.pixels = job.rgba.get();
    return raster;
  }
  lay_out(job, raster);
  if (integers) drop_not_a_number(raster);
  const bool premultiplied = container != Container::png;
  if (srgb || !premultiplied) encode_colour(raster, srgb, premultiplied, job.coverage);
  return raster;
}

int as_int(int64_t value) {
  if (value < std::numeric_limits<int>::min() || value > std::numeric_limits<int>::max())
    throw std::runtime_error("the image is too large for a file");
  return static_cast<int>(value);
}

OIIO::ImageSpec spec_of(const WriteJob& job, const Raster& raster, Container container,
                        const OIIO::TypeDesc& type) {
  const Format& format = job.extent.format;
  OIIO::ImageSpec spec(as_int(box_width(raster.window)), as_int(box_height(raster.window)), raster.channels,
                       type);
  spec.x = as_int(raster.window[0]);
  spec.y = as_int(format.height - raster.window[3]);
  spec.full_width = as_int(format.width);
  spec.full_height = as_int(format.height);
  spec.attribute("PixelAspectRatio", static_cast<float>(format.pixel_aspect));
  spec.attribute("Software", software_text(job.file.scale));
  // The writer would put the time of day here, and the same image would be another file each time.
  spec.attribute("DateTime", "");
  if (!job.file.compression.empty()) spec.attribute("compression", job.file.compression);
  if (container == Container::png) spec.attribute("oiio:UnassociatedAlpha", 1);
  if (container != Container::exr)
    spec.attribute("oiio:ColorSpace", is_srgb(job.file, container) ? "sRGB" : "Linear");
  return spec;
}

// Hands the rows over a strip at a time: the library converts what it is given in one piece, and a
// whole image's copies would cost more memory than the image. Strips end where compressed blocks do.
bool write_rows(OIIO::ImageOutput& output, const Raster& raster) {
  constexpr int strip = 256;
  const OIIO::ImageSpec& spec = output.spec();
  const auto floats_a_row = static_cast<size_t>(spec.width) * static_cast<size_t>(spec.nchannels);
  for (int row = 0; row < spec.height; row += strip) {
    const int end = std::min(row + strip, spec.height);
    if (!output.write_scanlines(spec.y + row, spec.y + end, spec.z, OIIO::TypeFloat,
                                raster.pixels + static_cast<size_t>(row) * floats_a_row)) {
      return false;
    }
  }
  return true;
}

[[noreturn]] void refuse(const OIIO::ImageOutput& output) {
  const std::string text = output.geterror();
  throw std::runtime_error(text.empty() ? "the encoder failed" : text);
}

}  // namespace

std::string unsupported_reason(const std::string& path) {
  if (container_of(path) != Container::unknown) return {};
  return "unknown image file ending (known: .exr .png .tif .tiff)";
}

std::vector<unsigned char> encode(const WriteJob& job) {
  const Container container = container_of(job.file.path);
  if (container == Container::unknown) throw std::runtime_error(unsupported_reason(job.file.path));
  const OIIO::TypeDesc type = stored_type(container, job.file.depth);
  const bool integers = type == OIIO::TypeUInt8 || type == OIIO::TypeUInt16;
  const Raster raster = raster_of(job, container, integers);

  const auto output = OIIO::ImageOutput::create(writer_name(container));
  if (!output) throw std::runtime_error(OIIO::geterror());
  if (!output->supports("ioproxy")) throw std::runtime_error("the encoder cannot write to memory");
  std::vector<unsigned char> content;
  OIIO::Filesystem::IOVecOutput sink(content);
  output->set_ioproxy(&sink);
  if (!output->open(job.file.path, spec_of(job, raster, container, type)) || !write_rows(*output, raster) ||
      !output->close())
    refuse(*output);
  return content;
}

}  // namespace host::files
