#include <qv/io/decode.h>
#include <qv/io/image_read.h>
#include <qv/io/layers.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <OpenImageIO/imageio.h>
#include <unistd.h>

// Any bytes as a file of each kind: reading must end in a documented result, whatever stands in it.

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

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  OIIO::attribute("limits:imagesize_MB", 1);
  OIIO::attribute("exr_threads", -1);
  return 0;
}

// The first byte chooses the ending, by which the reader is chosen.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  static const char* const endings[] = {"exr", "tif", "png"};
  static const std::string stem =
      (std::filesystem::temp_directory_path() / ("qv_fuzz_" + std::to_string(::getpid()))).string();
  const std::string path = stem + "." + endings[data[0] % std::size(endings)];
  write(path, data + 1, size - 1);
  read(path);
  std::filesystem::remove(path);
  return 0;
}
