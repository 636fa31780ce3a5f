#include "host/writer/exr/values.h"

#include <bit>
#include <cstring>

#if defined(__x86_64__)
#define QUORVEL_VECTOR_PATH 1
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace host::writer::exr {
namespace {

// Files hold the lower byte first, and words are copied into them as they are.
static_assert(std::endian::native == std::endian::little);

constexpr uint32_t infinite = 0x7f800000, largest_half = 0x477fe000, least_normal_half = 0x38800000;

uint32_t magnitude_of(float value) {
  return std::bit_cast<uint32_t>(value) & 0x7fffffffU;
}

uint16_t half_of(float value) {
  const uint32_t sign = std::bit_cast<uint32_t>(value) >> 16 & 0x8000U;
  const uint32_t magnitude = magnitude_of(value);
  uint32_t half = 0;
  if (magnitude > infinite) {
    half = 0x7e00U | (magnitude >> 13 & 0x3ffU);  // quiet, as the processor makes it
  } else if (magnitude == infinite) {
    half = 0x7c00U;
  } else if (magnitude > largest_half) {
    half = 0x7bffU;
  } else if (magnitude >= least_normal_half) {
    const uint32_t moved = magnitude - (112U << 23);
    half = (moved + 0xfffU + (moved >> 13 & 1U)) >> 13;
  } else {
    // Beside 0.5 the last bit of a float is 2^-24, the step of the halves that are left: the sum rounds.
    half = std::bit_cast<uint32_t>(std::bit_cast<float>(magnitude) + 0.5F) - std::bit_cast<uint32_t>(0.5F);
  }
  return static_cast<uint16_t>(sign | half);
}

#if QUORVEL_VECTOR_PATH

bool query_half_conversion() {
  constexpr unsigned int f16c = 1U << 29U;
  unsigned int eax = 0, ebx = 0, ecx = 0, edx = 0;
  return __get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0 && (ecx & f16c) != 0 &&
         __builtin_cpu_supports("avx") != 0;
}

bool has_half_conversion() {
  static const bool result = query_half_conversion();
  return result;
}

__attribute__((target("avx,f16c"))) inline __m256 two_pixels(const float* lower, const float* upper) {
  return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(lower)), _mm_loadu_ps(upper), 1);
}

// The first values of eight pixels of four, in order.
__attribute__((target("avx,f16c"))) inline __m256 every_fourth(const float* from) {
  const __m256 first = _mm256_unpacklo_ps(two_pixels(from, from + 16), two_pixels(from + 4, from + 20));
  const __m256 second = _mm256_unpacklo_ps(two_pixels(from + 8, from + 24), two_pixels(from + 12, from + 28));
  return _mm256_shuffle_ps(first, second, 0x44);
}

// Whole groups of eight, as long as there is a value behind them: a group of `every_fourth` is read up to
// there. A group with a value that is not simply rounded takes the other way.
template <size_t step>
__attribute__((target("avx,f16c"))) size_t convert_groups(const float* from, size_t n, uint16_t* to,
                                                          bool& special) {
  const __m256 all_but_sign = _mm256_castsi256_ps(_mm256_set1_epi32(0x7fffffff));
  const __m256 most = _mm256_set1_ps(most_half);
  size_t i = 0;
  for (; i + 8 < n; i += 8) {
    const float* const group = from + i * step;
    const __m256 values = step == 4 ? every_fourth(group) : _mm256_loadu_ps(group);
    const __m256 beyond = _mm256_cmp_ps(_mm256_and_ps(values, all_but_sign), most, _CMP_NLE_UQ);
    if (_mm256_movemask_ps(beyond) != 0) [[unlikely]] {
      special = to_halves_by_integers(group, step, 8, to + i);
      continue;
    }
    const __m128i halves = _mm256_cvtps_ph(values, _MM_FROUND_TO_NEAREST_INT);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + i), halves);
  }
  return i;
}

#endif

}  // namespace

bool to_halves_by_integers(const float* from, ptrdiff_t step, size_t n, uint16_t* to) {
  bool special = false;
  for (size_t i = 0; i < n; ++i, from += step) {
    special |= magnitude_of(*from) > largest_half;
    to[i] = half_of(*from);
  }
  return special;
}

bool to_halves(const float* from, ptrdiff_t step, size_t n, uint16_t* to) {
  bool special = false;
  size_t done = 0;
#if QUORVEL_VECTOR_PATH
  if (has_half_conversion() && step == 4) done = convert_groups<4>(from, n, to, special);
  if (has_half_conversion() && step == 1) done = convert_groups<1>(from, n, to, special);
#endif
  from += static_cast<ptrdiff_t>(done) * step;
  return to_halves_by_integers(from, step, n - done, to + done) || special;
}

bool to_words(const float* from, ptrdiff_t step, size_t n, uint16_t* to) {
  bool special = false;
  for (size_t i = 0; i < n; ++i, from += step) {
    special |= magnitude_of(*from) >= infinite;
    std::memcpy(to + 2 * i, from, sizeof *from);
  }
  return special;
}

void Differences::add(const uint16_t* words, size_t n) {
  if (n == 0) return;
  const auto less = [](uint32_t byte, uint32_t before) { return static_cast<uint8_t>(byte - before + 128); };
  uint8_t* const low = low_;  // members could be among the bytes that are written, for all a compiler knows
  uint8_t* const high = high_;
  low[0] = less(words[0], last_low_);
  high[0] = less(words[0] >> 8U, last_high_);
  for (size_t i = 1; i < n; ++i) {
    low[i] = less(words[i], words[i - 1]);
    high[i] = less(words[i] >> 8U, words[i - 1] >> 8U);
  }
  low_ += n;
  high_ += n;
  last_low_ = static_cast<uint8_t>(words[n - 1]);
  last_high_ = static_cast<uint8_t>(words[n - 1] >> 8U);
}

}  // namespace host::writer::exr
