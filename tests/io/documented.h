#pragma once

#include <qv/io/decode.h>
#include <qv/io/image_read.h>
#include <qv/io/layers.h>

#include <cstddef>
#include <string>
#include <vector>

// Whether each way of reading a file, whatever stands in it, ends in a documented result: its pixels or a
// text. `reads` are loaded into an output of this size.
inline bool ends_as_documented(const std::string& path, const std::vector<qv::io::Read>& reads, int width,
                               int height, int threads) {
  const auto floats = [](int w, int h, int channels) {
    return static_cast<size_t>(w) * static_cast<size_t>(h) * static_cast<size_t>(channels);
  };
  qv::io::DecodeResult result;
  qv::io::decode_plain(path, threads, result);
  const qv::ImageRead whole = qv::oiio_read_float(path);
  std::vector<float> out(floats(width, height, 4));
  std::string err;
  const bool loaded =
      qv::io::load_layers(path, reads, {{}}, width, height, threads, {out.data()}, err, nullptr);
  return result.status >= qv::io::decode_done && result.status <= qv::io::decode_failed &&
         (result.status == qv::io::decode_failed) == !result.error.empty() &&
         (result.status == qv::io::decode_done) == (result.pixels && result.spec) &&
         (!whole.error.empty() || whole.pixels.size() == floats(whole.width, whole.height, whole.channels)) &&
         loaded == err.empty();
}
