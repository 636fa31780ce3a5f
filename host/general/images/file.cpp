#include "host/general/images/file.h"

#include "host/general/images/part.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string_view>

namespace host::general::images {

bool ReaderFile::tells_metadata() const {
  return std::string_view(input_->format_name()) != "openexr";
}

plates::FileTold ReaderFile::told(int most_parts) {
  plates::FileTold told;
  told.format = input_->format_name();
  if (input_->seek_subimage(0, 0)) told.color = plates::color_space_of(color_hints_of(input_->spec()));
  int parts = 0;
  for (; parts < most_parts && input_->seek_subimage(parts, 0); ++parts)
    told.parts.push_back(part_of(input_->spec(), tells_metadata()));
  (void)input_->geterror();
  told.plain = parts == 1 && input_->seek_subimage(0, 0) && qv::io::is_plain(input_->spec());
  return told;
}

std::optional<plates::PartInfo> ReaderFile::part(int index) {
  if (input_->seek_subimage(index, 0)) return part_of(input_->spec(), tells_metadata());
  (void)input_->geterror();
  return std::nullopt;
}

std::string ReaderFile::software() {
  return input_->spec(0, 0).get_string_attribute("Software");
}

void ReaderFile::read(int part, int begin, int end, const OIIO::TypeDesc& type, void* to) {
  if (!input_->read_image(part, 0, begin, end, type, to))
    throw std::runtime_error(path_ + ": " + input_->geterror());
}

std::vector<double> ReaderFile::values(int part, int begin, int end) {
  const OIIO::ImageSpec spec = input_->spec(part, 0);
  if (begin < 0 || begin > end || end > spec.nchannels)
    throw std::runtime_error(path_ + ": the file changed while it was being read");
  const auto pixels = static_cast<size_t>(spec.image_pixels());
  const auto stride = static_cast<size_t>(end - begin);
  std::vector<double> values(pixels * stride);
  std::vector<int> whole;
  for (int channel = begin; channel < end; ++channel)
    if (spec.channelformat(channel) == OIIO::TypeUInt32) whole.push_back(channel);
  if (whole.size() < stride) read(part, begin, end, OIIO::TypeDesc::DOUBLE, values.data());
  // As doubles they would be steps from 0 to 1, as far as a float tells them apart.
  std::vector<uint32_t> numbers(whole.empty() ? 0 : pixels);
  for (const int channel : whole) {
    read(part, channel, channel + 1, OIIO::TypeUInt32, numbers.data());
    double* const to = values.data() + (channel - begin);
    for (size_t i = 0; i < pixels; ++i) to[i * stride] = numbers[i];
  }
  return values;
}

void ReaderFile::try_pixels(int part) {
  constexpr int strip = 256;
  const OIIO::ImageSpec spec = input_->spec(part, 0);
  const bool tiles = spec.tile_width > 0;
  const int rows = tiles ? spec.tile_height : std::min(strip, spec.height);
  std::vector<unsigned char> pixels(static_cast<size_t>(rows) * spec.scanline_bytes(true));
  bool whole = true;
  for (int row = 0; whole && row < spec.height; row += rows) {
    const int begin = spec.y + row;
    const int end = std::min(begin + rows, spec.y + spec.height);
    whole = tiles ? input_->read_tiles(part, 0, spec.x, spec.x + spec.width, begin, end, spec.z, spec.z + 1,
                                       0, spec.nchannels, OIIO::TypeUnknown, pixels.data())
                  : input_->read_scanlines(part, 0, begin, end, spec.z, 0, spec.nchannels, OIIO::TypeUnknown,
                                           pixels.data());
  }
  if (!whole) throw std::runtime_error(path_ + ": " + input_->geterror());
}

void ReaderFile::decode_plain(int threads, qv::io::DecodeResult& out) {
  qv::io::decode_plain(*input_, path_, threads, out);
}

bool ReaderFile::load_layers(const std::vector<qv::io::Read>& reads,
                             const std::vector<std::array<qv::io::Slot, 4>>& slots, int width, int height,
                             int threads, const std::vector<float*>& outs, std::string& error) {
  return qv::io::load_layers(*input_, path_, reads, slots, width, height, threads, outs, error, nullptr);
}

}  // namespace host::general::images
