#include <qv/io/half.h>

#include "bench/io/benches.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <Imath/half.h>
#include <OpenImageIO/imageio.h>
#include <immintrin.h>

namespace {

// The loops that the machine allows: the processor's conversion, and nothing looked at.
__attribute__((target("avx,f16c"))) void plain_loop(const uint16_t* src, float* dst, size_t n) {
  for (size_t i = 0; i < n; i += 8)
    _mm256_storeu_ps(dst + i, _mm256_cvtph_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i))));
}

__attribute__((target("avx,f16c"))) void streaming_loop(const uint16_t* src, float* dst, size_t n) {
  for (size_t i = 0; i < n; i += 8)
    _mm256_stream_ps(dst + i, _mm256_cvtph_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i))));
  _mm_sfence();
}

void measure(bench::Report& report, size_t n, const char* name, size_t repeats, bool large) {
  struct Free {
    void operator()(void* block) const {
      std::free(block);
    }
  };
  const std::unique_ptr<uint16_t[], Free> src(static_cast<uint16_t*>(std::aligned_alloc(4096, n * 2)));
  const std::unique_ptr<float[], Free> dst(static_cast<float*>(std::aligned_alloc(4096, n * 4)));
  for (size_t i = 0; i < n; ++i) src[i] = static_cast<uint16_t>(i * 2654435761u >> 7) & 0xbbff;
  const auto repeated = [&](auto function) {
    return [&src, &dst, n, repeats, function] {
      for (size_t i = 0; i < repeats; ++i) {
        function(src.get(), dst.get(), n);
        bench::keep(dst[n / 2]);
      }
    };
  };
  const auto imath = [](const uint16_t* from, float* to, size_t count) {
    for (size_t i = 0; i < count; ++i) to[i] = imath_half_to_float(from[i]);
  };
  const auto oiio = [](const uint16_t* from, float* to, size_t count) {
    OIIO::convert_pixel_values(OIIO::TypeHalf, from, OIIO::TypeFloat, to, static_cast<int>(count));
  };
  imath(src.get(), dst.get(), n);
  const std::vector<float> expected(dst.get(), dst.get() + n);
  std::memset(dst.get(), 0, n * sizeof(float));
  qv::io::half_to_float(src.get(), dst.get(), n);
  report.require(std::memcmp(expected.data(), dst.get(), n * sizeof(float)) == 0, "half_to_float and Imath");

  const auto timings =
      bench::time_in_turn(large ? 5 : 9, {repeated(qv::io::half_to_float), repeated(plain_loop),
                                          repeated(streaming_loop), repeated(imath), repeated(oiio)});
  const auto rate = [&](size_t which) {
    return static_cast<double>(n * repeats) / timings[which].least * 1e-9;
  };
  const std::string label = std::string("half, ") + name;
  if (large) {
    report.row(label + ", to the best loop", "Gval/s", bench::Better::more, rate(0),
               {{"plain", rate(1)}, {"streaming", rate(2)}}, 0.9);
    report.row(label + ", to Imath", "Gval/s", bench::Better::more, rate(0), {{"Imath", rate(3)}}, 3);
    report.row(label + ", to convert_pixel_values", "Gval/s", bench::Better::more, rate(0),
               {{"OpenImageIO", rate(4)}}, 10);
  } else {
    report.row(label, "Gval/s", bench::Better::more, rate(0),
               {{"plain loop", rate(1)}, {"Imath", rate(3)}, {"OpenImageIO", rate(4)}});
  }
}

}  // namespace

void bench_half(bench::Report& report) {
  if (!__builtin_cpu_supports("avx2")) return;
  measure(report, size_t{16} << 10, "16 Ki values", 2000, false);
  measure(report, size_t{256} << 10, "256 Ki values", 100, false);
  measure(report, size_t{64} << 20, "64 Mi values", 1, true);
}
