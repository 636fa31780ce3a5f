#include "host/draw/limits.h"

#include <algorithm>
#include <limits>
#include <thread>

namespace host::draw {
namespace {

constexpr uint64_t any_size = std::numeric_limits<uint64_t>::max() / 2;

}  // namespace

bool SentLimit::room(size_t out, uint64_t held, uint64_t more) const {
  return out < 2 || (out < images && held + more <= bytes);
}

// Decoding shares the processors with drawing and encoding, so more frames ahead would only lie in memory. A
// processor that draws has the image before it asks, and one strip is copied while the next is fetched; a
// device goes on with the next image, for which whole ones must be on their way.
Limits::Limits(int asked, uint64_t memory, bool software)
    : threads(asked > 0 ? asked : static_cast<int>(std::max(1U, std::thread::hardware_concurrency()))),
      frames_ahead(std::max(1, threads / 2)),
      decoded_bytes(memory / 4),
      ring(software ? 2 : 3),
      strip_bytes(software ? uint64_t{4} << 20 : any_size) {}

// Behind a file that all make together other images only wait; but small ones are over before all have begun.
SentLimit Limits::sent(bool packed_by_all) const {
  constexpr uint64_t small_ones = uint64_t{32} << 20;
  return {static_cast<size_t>(threads), packed_by_all ? small_ones : any_size};
}

}  // namespace host::draw
