#include "host/live/pixels.h"

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include <OpenEXR/ImfRgba.h>
#include <gtest/gtest.h>

namespace {

using host::live::session::Pixels;

// A float without sign of 5 bits of exponent, by its definition.
double value_of(uint32_t bits, int fraction_bits) {
  const auto exponent = static_cast<int>(bits >> fraction_bits);
  const double fraction = std::ldexp(bits & ((1U << fraction_bits) - 1U), -fraction_bits);
  if (exponent == 31) return fraction == 0 ? HUGE_VAL : NAN;
  return exponent == 0 ? std::ldexp(fraction, -14) : std::ldexp(1 + fraction, exponent - 15);
}

// The nearest that there is, of two the even one; beyond the most that.
uint32_t nearest(double value, int fraction_bits) {
  const uint32_t end = 31U << fraction_bits;
  if (std::isnan(value)) return end | 1U << (fraction_bits - 1);
  if (value == HUGE_VAL) return end;
  uint32_t best = 0;
  for (uint32_t bits = 1; bits < end; ++bits) {
    const double before = std::abs(value_of(best, fraction_bits) - value);
    const double here = std::abs(value_of(bits, fraction_bits) - value);
    if (here < before || (here == before && bits % 2 == 0)) best = bits;
  }
  return best;
}

// Every half there is as a channel of a pixel, so that what lies between two results is met as well.
TEST(Pixels, PackEveryHalfToTheNearestThatAFormatHas) {
  std::vector<uint32_t> wide(1U << 16U), narrow(1U << 16U);
  std::vector<float> pixels;
  for (uint32_t bits = 0; bits < wide.size(); ++bits) {
    half each;
    each.setBits(static_cast<uint16_t>(bits));
    const auto value = static_cast<float>(each);
    pixels.insert(pixels.end(), {value, value, value, value});
    // Those below 0 are one case.
    const bool below = bits > 0x8000U && !std::isnan(value);
    wide[bits] = below ? 0 : bits % 7 == 0 || bits >= 0x7bf0U ? nearest(static_cast<double>(value), 6) : ~0U;
    narrow[bits] = below                              ? 0
                   : bits % 7 == 0 || bits >= 0x7bf0U ? nearest(static_cast<double>(value), 5)
                                                      : ~0U;
  }
  std::vector<uint32_t> words(wide.size());
  host::live::pack_pixels(Pixels::r11g11b10f, pixels.data(), words.size(), words.data());
  std::vector<uint16_t> halves(4 * wide.size());
  host::live::pack_pixels(Pixels::rgba16f, pixels.data(), words.size(), halves.data());
  int compared = 0;
  for (uint32_t bits = 0; bits < wide.size(); ++bits) {
    half back;
    back.setBits(halves[size_t{4} * bits + 3]);
    const float value = pixels[size_t{4} * bits];
    ASSERT_TRUE(std::isnan(value) ? back.isNan() : back == value) << bits;
    if (wide[bits] == ~0U) continue;
    ++compared;
    const uint32_t word = words[bits];
    const std::array<uint32_t, 3> found = {word & 2047U, word >> 11U & 2047U, word >> 22U};
    ASSERT_EQ(found, (std::array{wide[bits], wide[bits], narrow[bits]})) << bits << " is " << value;
  }
  EXPECT_GT(compared, 30000);
}

TEST(Pixels, BytesAreHeldAndRounded) {
  const std::vector<float> pixels = {-1, 0, 0.5F / 255, 0.49F / 255, 1, 2, NAN, HUGE_VALF};
  std::vector<uint32_t> packed(2);
  host::live::pack_pixels(Pixels::rgba8, pixels.data(), 2, packed.data());
  EXPECT_EQ(packed, (std::vector<uint32_t>{0x00010000, 0xff00ffff}));
}

}  // namespace
