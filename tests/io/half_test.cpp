#include <qv/io/half.h>
#include <qv/io/half_paths.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <numeric>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace {

// From the meaning of the format: scaled integers, and NaN payloads moved up.
uint32_t expected_bits(uint16_t half) {
  const int exponent = half >> 10 & 31, mantissa = half & 1023;
  const uint32_t sign = static_cast<uint32_t>(half >> 15) << 31;
  if (exponent == 31) return sign | 0x7f800000u | static_cast<uint32_t>(mantissa) << 13;
  const double value = std::ldexp(exponent ? 1024 + mantissa : mantissa, (exponent ? exponent : 1) - 25);
  return sign | std::bit_cast<uint32_t>(static_cast<float>(value));
}

using Widen = void (*)(const uint16_t*, float*, size_t);

// In place: out of the second half of the floats' own memory.
void expect_widened(Widen widen, const uint16_t* halves, size_t n, size_t to, bool in_place) {
  std::vector<float> floats(to + n + 1, -7);
  auto* const own = reinterpret_cast<char*>(floats.data() + to) + 2 * n;
  if (in_place) std::memcpy(own, halves, 2 * n);
  widen(in_place ? reinterpret_cast<const uint16_t*>(own) : halves, floats.data() + to, n);
  for (size_t i = 0; i < n; ++i)
    ASSERT_EQ(std::bit_cast<uint32_t>(floats[to + i]), expected_bits(halves[i])) << i << " of " << n;
  ASSERT_EQ(floats[to + n], -7) << "wrote past the end of " << n;
}

TEST(half_to_float, every_value_at_every_place_on_both_paths) {
  std::vector<uint16_t> all(65536);
  std::iota(all.begin(), all.end(), uint16_t{0});
  std::shuffle(all.begin() + 32768, all.end(), std::mt19937(3));  // NaNs among others, too
  std::vector<Widen> paths = {qv::io::widen_scalar, qv::io::half_to_float};
  if (qv::io::has_vector_path()) paths.push_back(qv::io::widen_vector);
  for (const Widen widen : paths) {
    expect_widened(widen, all.data(), all.size(), 0, false);
    for (size_t from = 0; from < 16; ++from)
      for (size_t to = 0; to < 8; ++to)
        for (size_t n = 0; n <= 80; n += n < 17 ? 1 : 21)
          expect_widened(widen, &all[40000 + from], n, to, false);
  }
}

// Large enough to be streamed, from a place that no vector store accepts as aligned, in place.
TEST(half_to_float, large_and_in_place) {
  constexpr size_t n = (size_t{8} << 20) + 14;
  std::vector<uint16_t> halves(n);
  std::mt19937 random(5);
  for (auto& half : halves) half = static_cast<uint16_t>(random() % 60 ? random() & 0xfbff : random());
  expect_widened(qv::io::half_to_float, halves.data(), n, 1, true);
}

}  // namespace
