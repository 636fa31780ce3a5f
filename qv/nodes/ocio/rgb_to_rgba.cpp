#include <qv/nodes/ocio/splice.h>

#include <cstdint>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace qv::nodes::ocio {

namespace {

void widen_each(const float* rgb, size_t n, float* rgba) {
  for (size_t i = 0; i < n; ++i, rgb += 3, rgba += 4) {
    rgba[0] = rgb[0];
    rgba[1] = rgb[1];
    rgba[2] = rgb[2];
    rgba[3] = 1;
  }
}

#if defined(__x86_64__)

// Results of this many pixels and more are streamed past the caches, which they would overflow: a
// streamed line need not be read before it is written.
constexpr size_t streamed_pixels = size_t{1} << 20;

template <bool streamed>
__attribute__((target("avx2"))) inline void store(float* rgba, __m256 pixels) {
  if constexpr (streamed) {
    _mm256_stream_ps(rgba, pixels);
  } else {
    _mm256_storeu_ps(rgba, pixels);
  }
}

// Two pixels a vector, four a step; returns how many pixels it widened. A vector holds two floats
// more than it uses, so the last pixels are left: they have nothing behind them to read.
template <bool streamed>
__attribute__((target("avx2"))) size_t widen_fours(const float* rgb, size_t n, float* rgba) {
  const __m256i places = _mm256_setr_epi32(0, 1, 2, 0, 3, 4, 5, 0);
  const __m256 ones = _mm256_set1_ps(1);
  constexpr int alphas = 0b10001000;
  size_t i = 0;
  for (; i + 5 <= n; i += 4) {
    const __m256 first = _mm256_permutevar8x32_ps(_mm256_loadu_ps(rgb + 3 * i), places);
    const __m256 second = _mm256_permutevar8x32_ps(_mm256_loadu_ps(rgb + 3 * i + 6), places);
    store<streamed>(rgba + 4 * i, _mm256_blend_ps(first, ones, alphas));
    store<streamed>(rgba + 4 * i + 8, _mm256_blend_ps(second, ones, alphas));
  }
  if constexpr (streamed) _mm_sfence();
  return i;
}

size_t widen_most(const float* rgb, size_t n, float* rgba) {
  constexpr size_t vector = sizeof(__m256);
  const size_t misalignment = reinterpret_cast<uintptr_t>(rgba) % vector;
  // Fresh memory is often half a vector off, and a store that lies in two cache lines costs twice.
  const size_t first = misalignment == vector / 2 && n > 0 ? 1 : 0;
  widen_each(rgb, first, rgba);
  const bool streamed = n >= streamed_pixels && misalignment % (vector / 2) == 0;
  const auto widen = streamed ? widen_fours<true> : widen_fours<false>;
  return first + widen(rgb + 3 * first, n - first, rgba + 4 * first);
}

#endif

}  // namespace

void rgb_to_rgba(const float* rgb, size_t n, float* rgba) {
  size_t done = 0;
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx2")) done = widen_most(rgb, n, rgba);
#endif
  widen_each(rgb + 3 * done, n - done, rgba + 4 * done);
}

}  // namespace qv::nodes::ocio
