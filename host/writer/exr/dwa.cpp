#include "host/writer/exr/dwa.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>

#include <OpenEXR/ImfChannelList.h>
#include <OpenEXR/ImfFrameBuffer.h>
#include <OpenEXR/ImfHeader.h>
#include <OpenEXR/ImfIO.h>
#include <OpenEXR/ImfOutputFile.h>

namespace host::writer::exr {
namespace {

class Stream final : public Imf::OStream {
 public:
  explicit Stream(std::vector<uint8_t>& bytes) : Imf::OStream("memory"), bytes_(bytes) {}

  void write(const char* from, int n) override {
    const auto size = static_cast<size_t>(n);
    bytes_.resize(std::max(bytes_.size(), at_ + size));
    std::copy_n(from, size, bytes_.begin() + static_cast<ptrdiff_t>(at_));
    at_ += size;
  }
  uint64_t tellp() override {
    return at_;
  }
  void seekp(uint64_t at) override {
    at_ = at;
  }

 private:
  std::vector<uint8_t>& bytes_;
  size_t at_ = 0;
};

}  // namespace

std::span<const uint8_t> pack_dwa(const Part& part, int32_t rows, std::span<const uint8_t> values,
                                  std::vector<uint8_t>& file) {
  const size_t bytes = row_bytes(part);
  Imf::Header header(part.data.width, rows);
  header.compression() = part.codec == Codec::dwaa ? Imf::DWAA_COMPRESSION : Imf::DWAB_COMPRESSION;
  header.dwaCompressionLevel() = static_cast<float>(level_of(part));
  Imf::FrameBuffer buffer;
  // The library reads here, whatever its types say.
  char* first = reinterpret_cast<char*>(const_cast<uint8_t*>(values.data()));
  for (const Channel& channel : part.channels) {
    const Imf::PixelType type = channel.type == Type::half ? Imf::HALF : Imf::FLOAT;
    const size_t size = channel.type == Type::half ? 2 : 4;
    header.channels().insert(channel.name, Imf::Channel(type));
    buffer.insert(channel.name, Imf::Slice(type, first, size, bytes));
    first += size * static_cast<size_t>(part.data.width);
  }
  file.clear();
  Stream stream(file);
  Imf::OutputFile output(stream, header, 0);
  // The chunk stands behind what is there now: its row and its size, 4 bytes each, and itself.
  const size_t begin = file.size() + 8;
  output.setFrameBuffer(buffer);
  output.writePixels(rows);
  if (file.size() <= begin) throw std::runtime_error("the encoder failed");
  return std::span<const uint8_t>(file).subspan(begin);
}

}  // namespace host::writer::exr
