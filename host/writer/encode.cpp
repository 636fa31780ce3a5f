#include "host/writer/encode.h"

#include "host/general/general.h"
#include "host/writer/container.h"
#include "host/writer/exr/write.h"
#include "host/writer/exr_parts.h"
#include "host/writer/extremes.h"
#include "host/writer/raster.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace host::writer {

namespace {

uint64_t value_count(const OutputFile& file, const Box& window) {
  return static_cast<uint64_t>(box_width(window)) * static_cast<uint64_t>(box_height(window)) *
         (file.alpha ? 4 : 3);
}

// Of a file's values, not packed.
uint64_t stored_bytes(const OutputFile& file, Container container, const Box& window) {
  return value_count(file, window) * static_cast<uint64_t>(stored_type(container, file.depth).bytes);
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
    const bool integers = !stored_type(container, job.file.depth).floats;
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

    file.content.clear();
    file.content.reserve(stored_bytes(job.file, container, raster.window));
    general::library().encode(job, raster, file.content);
    filled = std::max(filled, file.content.size());
    return {file.content, notice_of(found, integers), 0};
  }
};

void load_encoder(const OutputFile& file) {
  if (container_of(file.path) != Container::exr) general::library();
}

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
