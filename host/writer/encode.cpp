#include "host/writer/encode.h"

#include "host/files/made.h"
#include "host/writer/container.h"
#include "host/writer/exr/write.h"
#include "host/writer/exr_parts.h"
#include "host/writer/extremes.h"
#include "host/writer/raster.h"
#include "host/writer/spec_metadata.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>

namespace host::writer {

namespace {

OIIO::ImageSpec spec_of(const WriteJob& job, const Raster& raster, Container container,
                        const OIIO::TypeDesc& type) {
  const Format& format = job.extent.format;
  OIIO::ImageSpec spec(as_int(box_width(raster.window)), as_int(box_height(raster.window)), raster.channels,
                       type);
  spec.attribute("PixelAspectRatio", static_cast<float>(format.pixel_aspect));
  spec.attribute("Software", files::software_text(job.file.scale, job.file.digest));
  // The writer would put the time of day here, and the same image would be another file each time.
  spec.attribute("DateTime", "");
  add_metadata(metadata_of(job), container, spec);
  if (!job.file.compression.empty()) spec.attribute("compression", job.file.compression);
  if (container == Container::jpeg) spec.attribute("CompressionQuality", job.file.quality);
  if (container == Container::dpx)
    spec.attribute("oiio:BitsPerSample", stored_bits(container, job.file.depth));
  const bool srgb = is_srgb(job.file);
  if (container == Container::png) spec.attribute("oiio:UnassociatedAlpha", 1);
  if (container == Container::png || container == Container::dpx)
    spec.attribute("oiio:ColorSpace", srgb ? "sRGB" : "Linear");
  if (container == Container::tiff || (container == Container::jpeg && !srgb)) {
    // The TIFF writer has an EXIF directory for this alone, and in memory loses the image behind it.
    const std::string said(spec.get_string_attribute("ImageDescription"));
    spec.attribute("ImageDescription", files::with_color_note(srgb, said));
  }
  return spec;
}

// Hands the rows over a strip at a time: the library converts what it is given in one piece, and a
// whole image's copies would cost more memory than the image. Strips end where compressed blocks do.
bool write_rows(OIIO::ImageOutput& output, const Raster& raster) {
  constexpr int strip = 256;
  constexpr auto bytes = static_cast<int64_t>(sizeof(float));
  const int height = output.spec().height;
  for (int row = 0; row < height; row += strip) {
    const int end = std::min(row + strip, height);
    if (!output.write_scanlines(row, end, 0, OIIO::TypeFloat, raster.first + row * raster.row,
                                raster.pixel * bytes, raster.row * bytes)) {
      return false;
    }
  }
  return true;
}

uint64_t value_count(const OutputFile& file, const Box& window) {
  return static_cast<uint64_t>(box_width(window)) * static_cast<uint64_t>(box_height(window)) *
         (file.alpha ? 4 : 3);
}

// Of a file's values, not packed.
uint64_t stored_bytes(const OutputFile& file, Container container, const Box& window) {
  return value_count(file, window) * stored_type(container, file.depth).size();
}

[[noreturn]] void refuse(const OIIO::ImageOutput& output) {
  const std::string text = output.geterror();
  throw std::runtime_error(text.empty() ? "the encoder failed" : text);
}

}  // namespace

struct Encoder::Memory {
  std::vector<float> pixels;               // changed ones
  std::vector<std::vector<float>> layers;  // the same, of an EXR file's images
  exr::Memory file;
  size_t filled = 0;  // of the file's memory, which is taken for what cannot be packed

  Encoded encode_exr(const WriteJob& job, exr::Packer& own, exr::Crew& crew) {
    const std::vector<exr::Part> parts = exr_parts(job, layers);
    const exr::Written written = exr::write(parts, own, crew, file);
    filled = std::max(filled, file.content.size());
    return {file.content, notice_of(written.found, false), written.helped_ms};
  }

  Encoded encode_other(const WriteJob& job, Container container) {
    const OIIO::TypeDesc type = stored_type(container, job.file.depth);
    const bool integers = !type.is_floating_point();
    const bool srgb = is_srgb(job.file), premultiplied = container != Container::png;
    const bool changed = srgb || !premultiplied;
    const Picture picture{job.extent, job.rgba, job.coverage};
    const int channels = job.file.alpha ? 4 : 3;
    Raster raster = raster_of(picture, format_box(job.extent.format), channels, changed, pixels);
    const Extremes found = extremes_of(raster);
    if (integers && found.not_a_number > 0) {
      raster = raster_of(picture, raster.window, channels, true, pixels);
      drop_not_a_number(pixels);
    }
    if (changed) encode_colour(pixels, raster.channels, srgb, premultiplied, job.coverage);

    const auto output = OIIO::ImageOutput::create(encoder_name(container));
    if (!output) throw std::runtime_error(OIIO::geterror());
    if (!output->supports("ioproxy")) throw std::runtime_error("the encoder cannot write to memory");
    file.content.clear();
    file.content.reserve(stored_bytes(job.file, container, raster.window));
    OIIO::Filesystem::IOVecOutput sink(file.content);
    output->set_ioproxy(&sink);
    if (!output->open(job.file.path, spec_of(job, raster, container, type)) || !write_rows(*output, raster) ||
        !output->close())
      refuse(*output);
    filled = std::max(filled, file.content.size());
    return {file.content, notice_of(found, integers), 0};
  }
};

uint64_t encoding_bytes(const OutputFile& file, const Extent& extent) {
  const Container container = container_of(file.path);
  const Box format = format_box(extent.format);
  const Box window = container != Container::exr ? format
                     : file.overscan             ? extent.window
                                                 : intersection(extent.window, format);
  const bool inside = intersection(extent.window, window) == window;
  const bool copied = is_srgb(file) || container == Container::png || !inside;
  return stored_bytes(file, container, window) + (copied ? value_count(file, window) * sizeof(float) : 0);
}

uint64_t Encoder::bytes() const {
  uint64_t bytes = memory_->pixels.capacity() * sizeof(float) + memory_->filled;
  for (const std::vector<float>& layer : memory_->layers) bytes += layer.capacity() * sizeof(float);
  for (const exr::Bytes& chunk : memory_->file.chunks) bytes += chunk.capacity();
  return bytes;
}

Encoder::Encoder() : memory_(std::make_unique<Memory>()) {}

Encoder::~Encoder() = default;

Encoded Encoder::encode(const WriteJob& job, exr::Packer& own, exr::Crew& crew) {
  const Container container = container_of(job.file.path);
  if (container == Container::unknown) throw std::runtime_error(unsupported_reason(job.file.path));
  if (const std::string wrong = wrong_setting(job.file); !wrong.empty()) throw std::runtime_error(wrong);
  return container == Container::exr ? memory_->encode_exr(job, own, crew)
                                     : memory_->encode_other(job, container);
}

}  // namespace host::writer
