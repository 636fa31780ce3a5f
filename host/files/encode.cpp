#include "host/files/encode.h"

#include "host/files/container.h"
#include "host/files/exr/write.h"
#include "host/files/extremes.h"
#include "host/files/made.h"
#include "host/files/raster.h"
#include "host/files/spec_metadata.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <vector>

#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>

namespace host::files {

namespace {

int32_t as_int(int64_t value) {
  if (value < std::numeric_limits<int32_t>::min() || value > std::numeric_limits<int32_t>::max())
    throw std::runtime_error("the image is too large for a file");
  return static_cast<int32_t>(value);
}

// The window that a file has pixels in, which is never empty.
Box window_of(const WriteJob& job, Container container) {
  const Box format = format_box(job.extent.format);
  if (container != Container::exr) return format;
  const Box window = job.file.overscan ? job.extent.window : intersection(job.extent.window, format);
  return is_empty(window) ? Box{0, 0, 1, 1} : window;
}

// A compression that the file type has: "zip", "dwaa:45".
void set_codec(std::string_view compression, exr::Part& part) {
  const size_t colon = compression.find(':');
  const std::string_view name = compression.substr(0, colon);
  const auto& names = exr::codec_names;
  if (!name.empty())
    part.codec = static_cast<exr::Codec>(std::find(names.begin(), names.end(), name) - names.begin());
  if (colon == std::string_view::npos) return;
  const std::string_view level = compression.substr(colon + 1);
  std::from_chars(level.data(), level.data() + level.size(), part.level);
}

// What the file is to say of its picture.
Metadata metadata_of(const WriteJob& job) {
  Metadata all = job.metadata ? *job.metadata : Metadata();
  for (const Metadatum& each : job.file.metadata.all()) all.set(each);
  return all;
}

exr::Part part_of(const WriteJob& job, const Raster& raster) {
  const Format& format = job.extent.format;
  exr::Part part;
  part.display = {0, 0, as_int(format.width), as_int(format.height)};
  part.data = {as_int(raster.window[0]), as_int(format.height - raster.window[3]),
               as_int(box_width(raster.window)), as_int(box_height(raster.window))};
  part.pixel_aspect = static_cast<float>(format.pixel_aspect);
  set_codec(job.file.compression, part);
  Metadata metadata = metadata_of(job);
  metadata.set({"Software", "string", {}, {software_text(job.file.scale, job.file.digest)}});
  if (is_srgb(job.file)) {
    const Metadatum* const said = metadata.find("comments");
    metadata.set({"comments", "string", {}, {with_color_note(true, said ? text_of(*said) : "")}});
  }
  part.attributes = metadata.all();
  const bool real = job.file.depth == OutputFile::Depth::float32;
  constexpr std::array<const char*, 4> names = {"R", "G", "B", "A"};
  // By name: A, B, G, R.
  for (int i = raster.channels - 1; i >= 0; --i)
    part.channels.push_back({names[static_cast<size_t>(i)], real ? exr::Type::real : exr::Type::half,
                             raster.first + i, raster.pixel, raster.row});
  return part;
}

OIIO::ImageSpec spec_of(const WriteJob& job, const Raster& raster, Container container,
                        const OIIO::TypeDesc& type) {
  const Format& format = job.extent.format;
  OIIO::ImageSpec spec(as_int(box_width(raster.window)), as_int(box_height(raster.window)), raster.channels,
                       type);
  spec.attribute("PixelAspectRatio", static_cast<float>(format.pixel_aspect));
  spec.attribute("Software", software_text(job.file.scale, job.file.digest));
  // The writer would put the time of day here, and the same image would be another file each time.
  spec.attribute("DateTime", "");
  add_metadata(metadata_of(job), container, spec);
  if (!job.file.compression.empty()) spec.attribute("compression", job.file.compression);
  const bool srgb = is_srgb(job.file);
  if (container == Container::png) {
    spec.attribute("oiio:UnassociatedAlpha", 1);
    spec.attribute("oiio:ColorSpace", srgb ? "sRGB" : "Linear");
  } else {
    // The TIFF writer has an EXIF directory for this alone, and in memory loses the image behind it.
    const std::string said(spec.get_string_attribute("ImageDescription"));
    spec.attribute("ImageDescription", with_color_note(srgb, said));
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

[[noreturn]] void refuse(const OIIO::ImageOutput& output) {
  const std::string text = output.geterror();
  throw std::runtime_error(text.empty() ? "the encoder failed" : text);
}

}  // namespace

struct Encoder::Memory {
  std::vector<float> pixels;  // changed ones
  exr::Memory file;

  Encoded encode_exr(const WriteJob& job, exr::Packer& own, exr::Crew& crew) {
    const bool srgb = is_srgb(job.file);
    const Raster raster = raster_of(job, window_of(job, Container::exr), srgb, pixels);
    if (srgb) encode_colour(pixels, raster.channels, srgb, true, job.coverage);
    const exr::Part part = part_of(job, raster);
    const exr::Written written = exr::write({&part, 1}, own, crew, file);
    return {file.content, notice_of(written.found, false), written.helped_ms};
  }

  Encoded encode_other(const WriteJob& job, Container container) {
    const OIIO::TypeDesc type = stored_type(container, job.file.depth);
    const bool integers = !type.is_floating_point();
    const bool srgb = is_srgb(job.file), premultiplied = container != Container::png;
    const bool changed = srgb || !premultiplied;
    Raster raster = raster_of(job, window_of(job, container), changed, pixels);
    const Extremes found = extremes_of(raster);
    if (integers && found.not_a_number > 0) {
      raster = raster_of(job, raster.window, true, pixels);
      drop_not_a_number(pixels);
    }
    if (changed) encode_colour(pixels, raster.channels, srgb, premultiplied, job.coverage);

    const auto output = OIIO::ImageOutput::create(container == Container::png ? "png" : "tiff");
    if (!output) throw std::runtime_error(OIIO::geterror());
    if (!output->supports("ioproxy")) throw std::runtime_error("the encoder cannot write to memory");
    file.content.clear();
    OIIO::Filesystem::IOVecOutput sink(file.content);
    output->set_ioproxy(&sink);
    if (!output->open(job.file.path, spec_of(job, raster, container, type)) || !write_rows(*output, raster) ||
        !output->close())
      refuse(*output);
    return {file.content, notice_of(found, integers), 0};
  }
};

Encoder::Encoder() : memory_(std::make_unique<Memory>()) {}

Encoder::~Encoder() = default;

Encoded Encoder::encode(const WriteJob& job, exr::Packer& own, exr::Crew& crew) {
  const Container container = container_of(job.file.path);
  if (container == Container::unknown) throw std::runtime_error(unsupported_reason(job.file.path));
  if (const std::string wrong = wrong_setting(job.file); !wrong.empty()) throw std::runtime_error(wrong);
  return container == Container::exr ? memory_->encode_exr(job, own, crew)
                                     : memory_->encode_other(job, container);
}

}  // namespace host::files
