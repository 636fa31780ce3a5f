#include "host/general/images/encode.h"

#include "host/files/made.h"
#include "host/general/images/spec_metadata.h"
#include "host/writer/container.h"
#include "host/writer/exr_parts.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>

namespace host::general::images {
namespace {

using writer::Container;

const char* encoder_name(Container container) {
  constexpr std::array names = {"", "openexr", "png", "tiff", "jpeg", "dpx"};
  return names.at(static_cast<size_t>(container));
}

OIIO::TypeDesc type_of(const writer::StoredType& stored) {
  if (stored.floats) return stored.bytes == 2 ? OIIO::TypeHalf : OIIO::TypeFloat;
  return stored.bytes == 1 ? OIIO::TypeUInt8 : OIIO::TypeUInt16;
}

OIIO::ImageSpec spec_of(const writer::WriteJob& job, const writer::Raster& raster, Container container) {
  const Format& format = job.extent.format;
  OIIO::ImageSpec spec(writer::as_int(box_width(raster.window)), writer::as_int(box_height(raster.window)),
                       raster.channels, type_of(writer::stored_type(container, job.file.depth)));
  spec.attribute("PixelAspectRatio", static_cast<float>(format.pixel_aspect));
  spec.attribute("Software", files::software_text(job.file.scale, job.file.digest));
  // The writer would put the time of day here, and the same image would be another file each time.
  spec.attribute("DateTime", "");
  add_metadata(writer::metadata_of(job), container, spec);
  if (!job.file.compression.empty()) spec.attribute("compression", job.file.compression);
  if (container == Container::jpeg) spec.attribute("CompressionQuality", job.file.quality);
  if (container == Container::dpx)
    spec.attribute("oiio:BitsPerSample", writer::stored_bits(container, job.file.depth));
  const bool srgb = writer::is_srgb(job.file);
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
bool write_rows(OIIO::ImageOutput& output, const writer::Raster& raster) {
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

[[noreturn]] void refuse(const OIIO::ImageOutput& output) {
  const std::string text = output.geterror();
  throw std::runtime_error(text.empty() ? "the encoder failed" : text);
}

}  // namespace

void encode(const writer::WriteJob& job, const writer::Raster& raster, std::vector<unsigned char>& content) {
  const Container container = writer::container_of(job.file.path);
  const auto output = OIIO::ImageOutput::create(encoder_name(container));
  if (!output) throw std::runtime_error(OIIO::geterror());
  if (!output->supports("ioproxy")) throw std::runtime_error("the encoder cannot write to memory");
  OIIO::Filesystem::IOVecOutput sink(content);
  output->set_ioproxy(&sink);
  if (!output->open(job.file.path, spec_of(job, raster, container)) || !write_rows(*output, raster) ||
      !output->close())
    refuse(*output);
}

}  // namespace host::general::images
