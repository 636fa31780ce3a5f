#include <qv/io/decode.h>
#include <qv/io/image_read.h>
#include <qv/io/layers.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <OpenImageIO/imageio.h>
#include <unistd.h>

// Files of each kind with any bytes changed, and any bytes as such a file: reading must end in a documented
// result, whatever stands in it. The readers are not instrumented, so nothing would lead from random bytes to
// a valid header; the changes start from whole files instead.

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

void write(const std::string& path, const uint8_t* data, size_t size) {
  std::FILE* const file = std::fopen(path.c_str(), "wb");
  require(file && std::fwrite(data, 1, size, file) == size && std::fclose(file) == 0);
}

void read(const std::string& path) {
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

struct Base {
  std::string ending;
  std::vector<uint8_t> bytes;
};

Base base(const std::string& stem, const char* ending, const char* compression, int tile) {
  OIIO::ImageSpec spec(8, 8, 4, std::string(ending) == "png" ? OIIO::TypeUInt8 : OIIO::TypeHalf);
  spec.tile_width = spec.tile_height = tile;
  spec.attribute("compression", compression);
  const std::string path = stem + "_base." + ending;
  const std::vector<float> pixels(8 * 8 * 4, 0.5f);
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
      base(stem(), "exr", "zip", 0),  base(stem(), "exr", "piz", 0),   base(stem(), "exr", "dwab", 0),
      base(stem(), "exr", "rle", 16), base(stem(), "exr", "b44a", 0),  base(stem(), "exr", "none", 0),
      base(stem(), "tif", "zip", 0),  base(stem(), "tif", "none", 16), base(stem(), "png", "", 0)};
  return result;
}

}  // namespace

// What a damaged header claims beyond memory is an allocation that fails, not a fault. OpenImageIO 2.4 leaves
// a text behind whenever libpng jumps out of a damaged file, which whole stacks tell.
extern "C" const char* __asan_default_options() {
  return "allocator_may_return_null=1:quarantine_size_mb=16:fast_unwind_on_malloc=0";
}
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libOpenImageIO.so\n";
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  OIIO::attribute("limits:imagesize_MB", 1);
  OIIO::attribute("exr_threads", -1);
  return 0;
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
  const std::string path = stem() + "." + from.ending;
  write(path, bytes.data(), bytes.size());
  read(path);
  std::filesystem::remove(path);
  return 0;
}
