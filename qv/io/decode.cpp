#include <qv/io/decode.h>
#include <qv/io/general_reader.h>

#include <exception>

namespace qv::io {

namespace {

void decode(OIIO::ImageInput* open, const std::string& path, int threads, DecodeResult& out) {
  try {
    general_reader().decode_plain(open, path, threads, out);
  } catch (const std::exception& failure) {
    out = {};
    out.status = decode_failed;
    out.error = failure.what();
  }
}

}  // namespace

void decode_plain(const std::string& path, int threads, DecodeResult& out) {
  decode(nullptr, path, threads, out);
}

void decode_plain(OIIO::ImageInput& input, const std::string& path, int threads, DecodeResult& out) {
  decode(&input, path, threads, out);
}

}  // namespace qv::io
