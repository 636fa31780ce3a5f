#pragma once

#include <cstddef>
#include <cstdint>

namespace host::writer::exr {

// The most that a half holds.
constexpr float most_half = 65504;

// Halves of the `n` floats from[0], from[step], ...: the nearest, of two the even one. Finite ones beyond
// most_half become most_half with their sign; infinities stay, a NaN stays one with its leading bits. Returns
// whether there were any of these three. Reads nothing outside of from[0] to from[(n - 1) * step].
bool to_halves(const float* from, ptrdiff_t step, size_t n, uint16_t* to);

// The same without the processor's own conversion; for processors that have none.
bool to_halves_by_integers(const float* from, ptrdiff_t step, size_t n, uint16_t* to);

// The floats as they are, each as two words, the lower one first. Returns whether any is not finite.
bool to_words(const float* from, ptrdiff_t step, size_t n, uint16_t* to);

// Differences of the bytes of words in the way of OpenEXR's zip: those of the lower bytes one after the
// other, and those of the higher ones. Each is its byte less the one before, plus 128. A chunk is parted
// by calls one after the other; the first byte of `high` is a difference to the last one of all `low`.
class Differences {
 public:
  // `bytes` has room for `size` of them, an even number: those of all calls.
  Differences(uint8_t* bytes, size_t size) : low_(bytes), high_(bytes + size / 2), first_high_(high_) {}

  void add(const uint16_t* words, size_t n);

  // After the last call.
  void finish() {
    *first_high_ = static_cast<uint8_t>(*first_high_ - last_low_);
  }

 private:
  uint8_t* low_;
  uint8_t* high_;
  uint8_t* first_high_;
  uint8_t last_low_ = 128;  // so that the first byte of all comes out as itself
  uint8_t last_high_ = 0;
};

}  // namespace host::writer::exr
