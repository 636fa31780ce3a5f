#include "host/files/encode.h"

#include "host/files/container.h"
#include "host/files/made.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>

namespace host::files {

namespace {

const char* writer_name(Container container) {
  return container == Container::exr ? "openexr" : container == Container::png ? "png" : "tiff";
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

// Pixels, not values, that a file cannot hold or that spoil what is made of it.
struct Extremes {
  int64_t held = 0;
  int64_t infinite = 0;
  int64_t not_a_number = 0;
};

constexpr float most_half = 65504;

Extremes extremes_of(const Raster& raster, bool half) {
  Extremes found;
  const auto channels = static_cast<size_t>(raster.channels);
  const auto count = static_cast<size_t>(box_width(raster.window)) *
                     static_cast<size_t>(box_height(raster.window)) * channels;
  for (size_t i = 0; i < count; i += channels) {
    float largest = 0;
    bool nan = false;
    bool infinite = false;
    for (size_t c = i; c < i + channels; ++c) {
      const float size = std::abs(raster.pixels[c]);
      nan = nan || std::isnan(size);
      infinite = infinite || std::isinf(size);
      if (std::isfinite(size)) largest = std::max(largest, size);
    }
    found.held += half && largest > most_half ? 1 : 0;
    found.infinite += infinite ? 1 : 0;
    found.not_a_number += nan ? 1 : 0;
  }
  return found;
}

std::string pixels_text(int64_t count, const char* one, const char* many) {
  return count == 0 ? "" : std::to_string(count) + (count == 1 ? one : many);
}

std::string notice_of(const Extremes& found, bool integers) {
  std::string text;
  const auto add = [&text](const std::string& more) {
    if (!more.empty()) text += (text.empty() ? "" : "; ") + more;
  };
  add(pixels_text(found.held, " pixel lies beyond 65504, the most that a half holds, and is held there",
                  " pixels lie beyond 65504, the most that a half holds, and are held there"));
  if (!integers) add(pixels_text(found.infinite, " pixel is infinite", " pixels are infinite"));
  const std::string nan =
      pixels_text(found.not_a_number, " pixel is not a number", " pixels are not a number");
  add(nan.empty() || !integers ? nan : nan + ", stored as 0");
  return text;
}

// The raster's own copy of the pixels, to change.
std::vector<float>& own_pixels(Raster& raster) {
  if (raster.storage.empty()) {
    const auto count = static_cast<size_t>(box_width(raster.window) * box_height(raster.window)) *
                       static_cast<size_t>(raster.channels);
    raster.storage.assign(raster.pixels, raster.pixels + count);
    raster.pixels = raster.storage.data();
  }
  return raster.storage;
}

// Halves have no place for larger numbers, which would become infinite and spread from there.
void hold_halves(Raster& raster) {
  for (float& value : own_pixels(raster)) {
    if (std::isfinite(value)) value = std::clamp(value, -most_half, most_half);
  }
}

// Integers have no place for a NaN: it becomes 0 rather than whatever the conversion makes of it.
void drop_not_a_number(Raster& raster) {
  for (float& value : own_pixels(raster)) value = std::isnan(value) ? 0.0F : value;
}

// The pixels as `type` holds them; what that changed is counted in `notice`.
Raster raster_of(const WriteJob& job, Container container, const OIIO::TypeDesc& type, std::string& notice) {
  const bool srgb = is_srgb(job.file);
  const bool integers = type == OIIO::TypeUInt8 || type == OIIO::TypeUInt16;
  const bool premultiplied = container != Container::png;
  Raster raster;
  raster.channels = job.file.alpha ? 4 : 3;
  const Box format = format_box(job.extent.format);
  raster.window = container != Container::exr ? format
                  : job.file.overscan         ? job.extent.window
                                              : intersection(job.extent.window, format);
  if (is_empty(raster.window)) raster.window = {0, 0, 1, 1};  // files hold at least one pixel
  if (raster.window == job.extent.window && raster.channels == 4) {
    raster.pixels = job.rgba.get();
  } else {
    lay_out(job, raster);
  }
  const bool half = type == OIIO::TypeHalf;
  Extremes found = half ? Extremes() : extremes_of(raster, false);
  if (integers && found.not_a_number > 0) drop_not_a_number(raster);
  if (srgb || !premultiplied) {
    own_pixels(raster);
    encode_colour(raster, srgb, premultiplied, job.coverage);
  }
  if (half) {
    found = extremes_of(raster, true);
    if (found.held > 0) hold_halves(raster);
  }
  notice = notice_of(found, integers);
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
  const bool srgb = is_srgb(job.file);
  if (container == Container::png) {
    spec.attribute("oiio:ColorSpace", srgb ? "sRGB" : "Linear");
  } else if (container == Container::tiff || srgb) {
    // The TIFF writer has an EXIF directory for this alone, and in memory loses the image behind it.
    spec.attribute("ImageDescription", color_note(srgb));
  }
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

const char* color_note(bool srgb) {
  return srgb ? "colour: sRGB" : "colour: linear";
}

Encoded encode(const WriteJob& job) {
  const Container container = container_of(job.file.path);
  if (container == Container::unknown) throw std::runtime_error(unsupported_reason(job.file.path));
  if (const std::string wrong = wrong_setting(job.file); !wrong.empty()) throw std::runtime_error(wrong);
  const OIIO::TypeDesc type = stored_type(container, job.file.depth);
  Encoded result;
  const Raster raster = raster_of(job, container, type, result.notice);

  const auto output = OIIO::ImageOutput::create(writer_name(container));
  if (!output) throw std::runtime_error(OIIO::geterror());
  if (!output->supports("ioproxy")) throw std::runtime_error("the encoder cannot write to memory");
  OIIO::Filesystem::IOVecOutput sink(result.content);
  output->set_ioproxy(&sink);
  if (!output->open(job.file.path, spec_of(job, raster, container, type)) || !write_rows(*output, raster) ||
      !output->close())
    refuse(*output);
  return result;
}

}  // namespace host::files
