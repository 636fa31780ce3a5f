#include <qv/io/exr/pixels.h>
#include <qv/io/half.h>

#include <algorithm>
#include <cstring>

#if defined(__x86_64__)
#define QV_IO_VECTOR_PATH 1
#include <immintrin.h>
#endif

namespace qv::io::exr {

namespace {

// Values that are widened at once, few enough for the nearest cache.
constexpr size_t block = 512;

using Floats = std::array<float, block>;

// Bytes [begin, begin + 2n) of a chunk, in order; `begin` is even.
void join(const Planes& planes, size_t begin, size_t n, uint8_t* to) {
  if (!planes.high) {
    std::memcpy(to, planes.low + begin, 2 * n);
    return;
  }
  const uint8_t* const low = planes.low + begin / 2;
  const uint8_t* const high = planes.high + begin / 2;
  size_t i = 0;
#if QV_IO_VECTOR_PATH
  for (; i + 16 <= n; i += 16) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(low + i));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(high + i));
    auto* const at = reinterpret_cast<__m128i*>(to + 2 * i);
    _mm_storeu_si128(at, _mm_unpacklo_epi8(a, b));
    _mm_storeu_si128(at + 1, _mm_unpackhi_epi8(a, b));
  }
#endif
  for (; i < n; ++i) {
    to[2 * i] = low[i];
    to[2 * i + 1] = high[i];
  }
}

// Values [first, first + n) of a run, at most a block.
void widen(const Run& run, size_t first, size_t n, float* to) {
  if (run.type == Type::half) {
    std::array<uint16_t, block> halves;
    join(run.planes, run.begin + 2 * first, n, reinterpret_cast<uint8_t*>(halves.data()));
    half_to_float(halves.data(), to, n);
  } else if (run.type == Type::real) {
    join(run.planes, run.begin + 4 * first, 2 * n, reinterpret_cast<uint8_t*>(to));
  } else {
    std::array<uint32_t, block> numbers;
    join(run.planes, run.begin + 4 * first, 2 * n, reinterpret_cast<uint8_t*>(numbers.data()));
    // As a float the largest number is 2^32, and so it is 1.
    for (size_t i = 0; i < n; ++i) to[i] = static_cast<float>(numbers[i]) * 0x1p-32F;
  }
}

template <class Value>
void interleave_by_pixel(const std::array<const Value*, 4>& from, size_t begin, size_t n, Value* to) {
  for (size_t i = begin; i < n; ++i)
    for (size_t c = 0; c < 4; ++c) to[4 * i + c] = from[c][i];
}

#if QV_IO_VECTOR_PATH

bool has_wide_floats() {
  static const bool result = __builtin_cpu_supports("avx") != 0;
  return result;
}

template <bool streamed>
__attribute__((target("avx"))) inline void store(float* to, __m128 pixel) {
  if constexpr (streamed) {
    _mm_stream_ps(to, pixel);
  } else {
    _mm_storeu_ps(to, pixel);
  }
}

// Eight pixels at a time: the first four of them in the low lanes.
template <bool streamed>
__attribute__((target("avx"))) size_t interleave_eights(const std::array<const float*, 4>& from, size_t n,
                                                        float* to) {
  size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const __m256 r = _mm256_loadu_ps(from[0] + i), g = _mm256_loadu_ps(from[1] + i);
    const __m256 b = _mm256_loadu_ps(from[2] + i), a = _mm256_loadu_ps(from[3] + i);
    const __m256 rg = _mm256_unpacklo_ps(r, g), rg2 = _mm256_unpackhi_ps(r, g);
    const __m256 ba = _mm256_unpacklo_ps(b, a), ba2 = _mm256_unpackhi_ps(b, a);
    const __m256 p0 = _mm256_shuffle_ps(rg, ba, 0x44), p1 = _mm256_shuffle_ps(rg, ba, 0xee);
    const __m256 p2 = _mm256_shuffle_ps(rg2, ba2, 0x44), p3 = _mm256_shuffle_ps(rg2, ba2, 0xee);
    float* const at = to + 4 * i;
    store<streamed>(at, _mm256_castps256_ps128(p0));
    store<streamed>(at + 4, _mm256_castps256_ps128(p1));
    store<streamed>(at + 8, _mm256_castps256_ps128(p2));
    store<streamed>(at + 12, _mm256_castps256_ps128(p3));
    store<streamed>(at + 16, _mm256_extractf128_ps(p0, 1));
    store<streamed>(at + 20, _mm256_extractf128_ps(p1, 1));
    store<streamed>(at + 24, _mm256_extractf128_ps(p2, 1));
    store<streamed>(at + 28, _mm256_extractf128_ps(p3, 1));
  }
  return i;
}

void interleave(const std::array<const float*, 4>& from, size_t n, float* to, bool past_caches) {
  size_t done = 0;
  if (has_wide_floats()) {
    const bool streamed = past_caches && reinterpret_cast<uintptr_t>(to) % 16 == 0;
    done = streamed ? interleave_eights<true>(from, n, to) : interleave_eights<false>(from, n, to);
  }
  interleave_by_pixel(from, done, n, to);
}

void interleave(const std::array<const uint16_t*, 4>& from, size_t n, uint16_t* to) {
  const auto load = [](const uint16_t* at) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at)); };
  size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const __m128i r = load(from[0] + i), g = load(from[1] + i), b = load(from[2] + i), a = load(from[3] + i);
    const __m128i rg = _mm_unpacklo_epi16(r, g), rg2 = _mm_unpackhi_epi16(r, g);
    const __m128i ba = _mm_unpacklo_epi16(b, a), ba2 = _mm_unpackhi_epi16(b, a);
    auto* const at = reinterpret_cast<__m128i*>(to + 4 * i);
    _mm_storeu_si128(at, _mm_unpacklo_epi32(rg, ba));
    _mm_storeu_si128(at + 1, _mm_unpackhi_epi32(rg, ba));
    _mm_storeu_si128(at + 2, _mm_unpacklo_epi32(rg2, ba2));
    _mm_storeu_si128(at + 3, _mm_unpackhi_epi32(rg2, ba2));
  }
  interleave_by_pixel(from, i, n, to);
}

#else

void interleave(const std::array<const uint16_t*, 4>& from, size_t n, uint16_t* to) {
  interleave_by_pixel(from, 0, n, to);
}

void interleave(const std::array<const float*, 4>& from, size_t n, float* to, bool) {
  interleave_by_pixel(from, 0, n, to);
}

#endif

}  // namespace

void write_component(const Run& run, size_t n, float* to, size_t stride) {
  Floats floats;
  for (size_t first = 0; first < n; first += block) {
    const size_t count = std::min(block, n - first);
    widen(run, first, count, floats.data());
    for (size_t i = 0; i < count; ++i) to[(first + i) * stride] = floats[i];
  }
}

void write_pixels(const std::array<Component, 4>& components, size_t n, float* to, bool past_caches) {
  std::array<Floats, 4> floats;
  std::array<const float*, 4> from = {};
  for (size_t c = 0; c < 4; ++c) {
    from[c] = floats[c].data();
    if (!components[c].run) floats[c].fill(components[c].value);
  }
  for (size_t first = 0; first < n; first += block) {
    const size_t count = std::min(block, n - first);
    for (size_t c = 0; c < 4; ++c)
      if (components[c].run) widen(*components[c].run, first, count, floats[c].data());
    interleave(from, count, to + 4 * first, past_caches);
  }
}

void write_halves(const std::array<Run, 4>& runs, size_t n, uint16_t* to) {
  std::array<std::array<uint16_t, block>, 4> halves;
  std::array<const uint16_t*, 4> from = {};
  for (size_t c = 0; c < 4; ++c) from[c] = halves[c].data();
  for (size_t first = 0; first < n; first += block) {
    const size_t count = std::min(block, n - first);
    for (size_t c = 0; c < 4; ++c)
      join(runs[c].planes, runs[c].begin + 2 * first, count, reinterpret_cast<uint8_t*>(halves[c].data()));
    interleave(from, count, to + 4 * first);
  }
}

void finish_writing() {
#if QV_IO_VECTOR_PATH
  _mm_sfence();
#endif
}

}  // namespace qv::io::exr
