#include <qv/io/bands.h>
#include <qv/io/reader.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <mutex>

#include <OpenImageIO/parallel.h>

namespace qv::io {

namespace {

int band_limit(int threads) {
  const char* text = std::getenv("QUORVEL_NATIVE_IO_BANDS");
  const int limit = text ? std::atoi(text) : 16;
  return threads > 0 ? std::min(limit, threads) : limit;
}

// Rows [begin, end) of the layer, counted from its top.
bool read_rows(OIIO::ImageInput& input, const OIIO::ImageSpec& spec, const Read& read, int begin, int end,
               float* pixels) {
  const size_t row = static_cast<size_t>(read.width) * static_cast<size_t>(read.chend - read.chbegin);
  return input.read_scanlines(read.subimage, 0, spec.y + begin, spec.y + end, 0, read.chbegin, read.chend,
                              OIIO::TypeFloat, pixels + row * static_cast<size_t>(begin));
}

bool read_band(const std::string& path, const OIIO::ImageSpec& spec, const Read& read, int begin, int end,
               float* pixels, std::string& error) {
  try {
    const auto input = open_reader(path, 1, error);
    if (!input) return false;
    const bool done = read_rows(*input, spec, read, begin, end, pixels);
    if (!done) error = take_error(*input);
    input->close();
    return done;
  } catch (const std::exception& failure) {
    error = failure.what();
    return false;
  }
}

}  // namespace

Bands bands_of(const OIIO::ImageSpec& spec, int threads) {
  if (threads == 1 || spec.tile_width > 0 || spec.deep || spec.height < 128) return {1, spec.height};
  const std::string compression(spec.get_string_attribute("compression"));
  const int block = compression.rfind("dwab", 0) == 0 ? 256 : 32;
  const int count = std::max(1, std::min(spec.height / (2 * block), band_limit(threads)));
  const int rows = (spec.height - 1) / count + 1;
  return {count, ((rows - 1) / block + 1) * block};
}

bool read_in_bands(OIIO::ImageInput& input, const std::string& path, const OIIO::ImageSpec& spec,
                   const Read& read, const Bands& bands, float* pixels, std::string& err) {
  if (bands.count == 1) {
    const bool done = input.read_image(read.subimage, 0, read.chbegin, read.chend, OIIO::TypeFloat, pixels);
    if (!done) err = take_error(input);
    return done;
  }
  std::mutex mutex;
  std::atomic<bool> good = true;
  const int tasks = (read.height - 1) / bands.rows + 1;
  const auto task = [&](int64_t index) {
    const int begin = static_cast<int>(index) * bands.rows;
    std::string error;
    if (read_band(path, spec, read, begin, std::min(begin + bands.rows, read.height), pixels, error)) return;
    const std::lock_guard lock(mutex);
    err = error;
    good = false;
  };
  OIIO::parallel_for(int64_t{0}, int64_t{tasks}, task,
                     OIIO::paropt(bands.count, OIIO::paropt::SplitDir::Y, 1));
  return good;
}

}  // namespace qv::io
