#include <qv/io/half.h>
#include <qv/io/half_paths.h>

#include <bit>
#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#define QV_IO_VECTOR_PATH 1
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace qv::io {

namespace {

inline uint32_t widened(uint32_t half) {
  const uint32_t sign = (half & 0x8000u) << 16;
  const uint32_t magnitude = half & 0x7fffu;
  if (magnitude >= 0x7c00u) return sign | 0x7f800000u | (magnitude & 0x3ffu) << 13;
  if (magnitude >= 0x0400u) return sign | ((magnitude << 13) + (112u << 23));
  if (magnitude == 0) return sign;
  // A subnormal is a multiple of 2^-24: shift its leading bit to the hidden one's place.
  const uint32_t shift = static_cast<uint32_t>(std::countl_zero(magnitude)) - 21u;
  return sign | (113u - shift) << 23 | (magnitude << shift & 0x3ffu) << 13;
}

}  // namespace

// Bytes are copied in and out because, in place, the halves live in storage of floats.
void widen_scalar(const uint16_t* src, float* dst, size_t n) {
  for (size_t i = 0; i < n; ++i) {
    uint16_t half = 0;
    std::memcpy(&half, src + i, sizeof half);
    const uint32_t bits = widened(half);
    std::memcpy(dst + i, &bits, sizeof bits);
  }
}

#if QV_IO_VECTOR_PATH

namespace {

// Results of this many values and more go past the caches: they would push out what is still
// wanted, and a line that is streamed need not be read before it is written.
constexpr size_t streamed_values = size_t{8} << 20;

// Values widened between two looks for a NaN.
constexpr size_t group = 32;

bool query_vector_path() {
  constexpr unsigned int os_keeps_registers = 1u << 27, avx = 1u << 28, f16c = 1u << 29;
  constexpr unsigned int wanted = os_keeps_registers | avx | f16c;
  unsigned int eax = 0, ebx = 0, ecx = 0, edx = 0;
  if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx) || (ecx & wanted) != wanted) return false;
  unsigned int low = 0, high = 0;
  __asm__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
  return (low & 6u) == 6u;
}

template <bool streamed>
__attribute__((target("avx,f16c"))) inline void store(float* dst, __m128i halves) {
  if constexpr (streamed) {
    _mm256_stream_ps(dst, _mm256_cvtph_ps(halves));
  } else {
    _mm256_storeu_ps(dst, _mm256_cvtph_ps(halves));
  }
}

// The processor would quiet a signalling NaN, so a group that holds a NaN takes the scalar rule.
// Everything is read before the first store, as widening in place needs.
template <bool streamed>
__attribute__((target("avx,f16c"))) inline void widen_group(const uint16_t* src, float* dst) {
  const __m128i magnitude = _mm_set1_epi16(0x7fff);
  const auto* from = reinterpret_cast<const __m128i*>(src);
  const __m128i a = _mm_loadu_si128(from), b = _mm_loadu_si128(from + 1);
  const __m128i c = _mm_loadu_si128(from + 2), d = _mm_loadu_si128(from + 3);
  const __m128i ab = _mm_max_epi16(_mm_and_si128(a, magnitude), _mm_and_si128(b, magnitude));
  const __m128i cd = _mm_max_epi16(_mm_and_si128(c, magnitude), _mm_and_si128(d, magnitude));
  const __m128i nan = _mm_cmpgt_epi16(_mm_max_epi16(ab, cd), _mm_set1_epi16(0x7c00));
  if (_mm_movemask_epi8(nan) != 0) [[unlikely]] {
    uint16_t copy[group];
    std::memcpy(copy, src, sizeof copy);
    widen_scalar(copy, dst, group);
    return;
  }
  store<streamed>(dst, a);
  store<streamed>(dst + 8, b);
  store<streamed>(dst + 16, c);
  store<streamed>(dst + 24, d);
}

// Widens whole groups and returns how many values those were.
template <bool streamed>
__attribute__((target("avx,f16c"))) size_t widen_groups(const uint16_t* src, float* dst, size_t n) {
  size_t i = 0;
  for (; i + group <= n; i += group) widen_group<streamed>(src + i, dst + i);
  return i;
}

}  // namespace

bool has_vector_path() {
  static const bool result = query_vector_path();
  return result;
}

void widen_vector(const uint16_t* src, float* dst, size_t n) {
  size_t done = 0;
  if (n >= streamed_values) {
    done = (32 - reinterpret_cast<uintptr_t>(dst) % 32) % 32 / sizeof(float);
    widen_scalar(src, dst, done);
    done += widen_groups<true>(src + done, dst + done, n - done);
    _mm_sfence();
  } else {
    done = widen_groups<false>(src, dst, n);
  }
  widen_scalar(src + done, dst + done, n - done);
}

#else

bool has_vector_path() {
  return false;
}

void widen_vector(const uint16_t* src, float* dst, size_t n) {
  widen_scalar(src, dst, n);
}

#endif

void half_to_float(const uint16_t* src, float* dst, size_t n) {
  has_vector_path() ? widen_vector(src, dst, n) : widen_scalar(src, dst, n);
}

}  // namespace qv::io
