#include <qv/io/decode.h>
#include <qv/io/exr_read.h>
#include <qv/io/image_read.h>
#include <qv/io/layers.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <OpenImageIO/imageio.h>
#include <sanitizer/lsan_interface.h>
#include <unistd.h>

// Files of each kind with any bytes changed, and any bytes as such a file: reading must end in a documented
// result, whatever stands in it. The readers are not instrumented, so nothing would lead from random bytes to
// a valid header; the changes start from whole files instead. What is read of OpenEXR files past the general
// reader is read from memory, which is hundreds of times as fast as from files by every entry.

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

void write(const std::string& path, const uint8_t* data, size_t size) {
  std::FILE* const file = std::fopen(path.c_str(), "wb");
  require(file && std::fwrite(data, 1, size, file) == size && std::fclose(file) == 0);
}

// OpenImageIO 2.4 leaves a text behind whenever libpng jumps out of a damaged file, which only whole stacks
// would tell from leaks of ours, at twenty times the price of everything else.
void read(const std::string& path) {
  const __lsan::ScopedDisabler leaks_of_others;
  qv::io::DecodeResult result;
  qv::io::decode_plain(path, 1, result);
  require(result.status >= 2 && result.status <= 4);
  require((result.status == 2) == (result.pixels != nullptr));
  require((result.status == 4) == !result.error.empty());

  const qv::ImageRead whole = qv::oiio_read_float(path);
  const auto count = static_cast<size_t>(whole.width) * static_cast<size_t>(whole.height) *
                     static_cast<size_t>(whole.channels);
  require(!whole.error.empty() || whole.pixels.size() == count);

  std::vector<float> out(8 * 8 * 4);
  std::string err;
  const bool loaded =
      qv::io::load_layers(path, {{0, 0, 1, 0, 0, 8, 8}}, {{}}, 8, 8, 1, {out.data()}, err, nullptr);
  require(loaded == err.empty());
}

// Shows channels of a part in an image, beside and across its edges. What is read once is read again, to the
// same pixels; what is said to be read has been written.
void show(const qv::io::ExrFile& file, const qv::io::ExrPart& part, int64_t width, int64_t height, int64_t x,
          int64_t y) {
  const float untouched = -0x1.23p-45f;
  std::vector<float> pixels(static_cast<size_t>(width * height * 4), untouched), again = pixels;
  qv::io::ExrLayer layer;
  layer.width = width;
  layer.height = height;
  layer.x = x;
  layer.y = y;
  const int channels = static_cast<int>(part.channels.size());
  for (int c = 0; c < 4; ++c)
    layer.sources[static_cast<size_t>(c)] = {qv::io::ExrSource::Kind::channel, (channels - 1) * c / 3, 0};
  double ms = 0;
  layer.pixels = pixels.data();
  if (!qv::io::decode_layers(file, part, {&layer, 1}, 1, ms)) return;
  layer.sources[0].kind = qv::io::ExrSource::Kind::untouched;
  layer.pixels = again.data();
  require(qv::io::decode_layers(file, part, {&layer, 1}, 1, ms));
  for (size_t i = 0; i < pixels.size(); ++i)
    require(i % 4 == 0 || std::memcmp(&pixels[i], &again[i], sizeof(float)) == 0);
}

void read_exr(const std::vector<uint8_t>& bytes) {
  const auto file = qv::io::ExrFile::open(bytes);
  if (!file) return;
  for (int index = 0; index < std::min(file->parts(), 4); ++index) {
    const auto part = file->part(index);
    if (!part) continue;
    show(*file, *part, 50, 50, 0, 0);
    show(*file, *part, 9, 9, -5, -17);
  }
}

struct Base {
  std::string ending;
  std::vector<uint8_t> bytes;
};

Base base(const std::string& stem, const char* ending, const char* compression, int tile,
          bool mixed = false) {
  const int size = mixed ? 40 : 8;
  OIIO::ImageSpec spec(size, size, 4, std::string(ending) == "png" ? OIIO::TypeUInt8 : OIIO::TypeHalf);
  if (mixed) spec.channelformats = {OIIO::TypeHalf, OIIO::TypeFloat, OIIO::TypeUInt32, OIIO::TypeHalf};
  spec.tile_width = spec.tile_height = tile;
  spec.attribute("compression", compression);
  const std::string path = stem + "_base." + ending;
  std::vector<float> pixels(static_cast<size_t>(size * size * 4), 0.5f);
  for (size_t i = 0; mixed && i < pixels.size(); ++i) pixels[i] = static_cast<float>(i * 37 % 101) / 100;
  const auto output = OIIO::ImageOutput::create(path);
  require(output && output->open(path, spec) && output->write_image(OIIO::TypeFloat, pixels.data()) &&
          output->close());
  std::ifstream file(path, std::ios::binary);
  Base result = {ending, {std::istreambuf_iterator<char>(file), {}}};
  std::filesystem::remove(path);
  return result;
}

const std::string& stem() {
  static const std::string result =
      (std::filesystem::temp_directory_path() / ("qv_fuzz_" + std::to_string(::getpid()))).string();
  return result;
}

const std::vector<Base>& bases() {
  static const std::vector<Base> result = {
      base(stem(), "exr", "zip", 0),       base(stem(), "exr", "piz", 0),
      base(stem(), "exr", "dwab", 0),      base(stem(), "exr", "rle", 16),
      base(stem(), "exr", "b44a", 0),      base(stem(), "exr", "none", 0),
      base(stem(), "exr", "zip", 0, true), base(stem(), "exr", "zips", 16, true),
      base(stem(), "exr", "rle", 0, true), base(stem(), "tif", "zip", 0),
      base(stem(), "tif", "none", 16),     base(stem(), "png", "", 0)};
  return result;
}

}  // namespace

// What a damaged header claims beyond memory is an allocation that fails, not a fault.
extern "C" const char* __asan_default_options() {
  return "allocator_may_return_null=1:quarantine_size_mb=16";
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  OIIO::attribute("limits:imagesize_MB", 1);
  OIIO::attribute("exr_threads", -1);
  return 0;
}

// One input in 64, whatever is in it, so that those do not breed: every entry reads the file, which is slow.
bool reads_files(const uint8_t* data, size_t size) {
  uint32_t hash = 2166136261u;
  for (size_t i = 0; i < size; ++i) hash = (hash ^ data[i]) * 16777619u;
  return hash >> 26 == 0;
}

// The first byte chooses the file, by whose ending the reader is chosen, and whether the rest changes some of
// its bytes, three input bytes a change, or takes the place of them all.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const Base& from = bases()[data[0] / 2 % bases().size()];
  std::vector<uint8_t> bytes(data + 1, data + size);
  if (data[0] % 2 == 0) {
    bytes = from.bytes;
    for (size_t i = 1; i + 2 < size; i += 3)
      bytes[(data[i] | size_t{data[i + 1]} << 8) % bytes.size()] = data[i + 2];
  }
  read_exr(bytes);
  if (!reads_files(data, size)) return 0;
  const std::string path = stem() + "." + from.ending;
  write(path, bytes.data(), bytes.size());
  read(path);
  std::filesystem::remove(path);
  return 0;
}
