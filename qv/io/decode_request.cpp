#include <qv/io/decode_request.h>

namespace qv::io {

double ms_since(DecodeClock::time_point start) {
  return std::chrono::duration<double, std::milli>(DecodeClock::now() - start).count();
}

DecodeRequest begin_decode(const std::string& path, int threads, DecodeResult& out) {
  out = {};
  const DecodeClock::time_point asking = DecodeClock::now();
  const FileAttributes attributes = file_attributes(path);
  out.has_mtime = attributes.found;
  out.mtime_ns = attributes.mtime_ns;
  const DecodeClock::time_point start = DecodeClock::now();
  out.stat_s = std::chrono::duration<double>(start - asking).count();
  out.status = decode_other;
  return {path, threads, attributes, start};
}

}  // namespace qv::io
