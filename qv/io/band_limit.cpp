#include <qv/io/band_limit.h>

#include <algorithm>
#include <cstdlib>

namespace qv::io {

int band_limit(int threads) {
  const char* text = std::getenv("QUORVEL_NATIVE_IO_BANDS");
  const int limit = text ? std::atoi(text) : 16;
  return threads > 0 ? std::min(limit, threads) : limit;
}

}  // namespace qv::io
