#include "host/writer/exr/values.h"

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>

namespace {

// Halves of every kind and what lies between them, laid out in every way, by both ways, against the halves
// of OpenImageIO.
TEST(Writer, RoundsToTheNearestHalf) {
  std::vector<float> values;
  const auto widened = [](uint32_t half) {
    return half < 0x400 ? std::ldexp(static_cast<float>(half), -24)
                        : std::bit_cast<float>((half << 13) + (112U << 23));
  };
  for (uint32_t half = 0; half < 0x7bff; ++half) {
    // The half, its neighbours as floats, and the same half way to the next one.
    const float low = widened(half), high = widened(half + 1);
    for (const float middle : {low, low + (high - low) / 2})
      for (const float value : {std::nextafter(middle, -1.0F), middle, std::nextafter(middle, 1e9F)})
        values.insert(values.end(), {value, -value});
  }
  std::vector<uint16_t> wanted(values.size());
  ASSERT_TRUE(OIIO::convert_pixel_values(OIIO::TypeFloat, values.data(), OIIO::TypeHalf, wanted.data(),
                                         static_cast<int>(values.size())));
  for (const float odd :
       {std::numeric_limits<float>::infinity(), 65505.0F, -1e30F, std::nanf(""), -std::nanf("77")}) {
    for (size_t i = 5; i < 30; i += 3) values[values.size() - i * i] = odd;
    for (const size_t step : {1U, 3U, 4U}) {
      std::vector<float> spread((values.size() - 1) * step + 1);
      for (size_t i = 0; i < values.size(); ++i) spread[i * step] = values[i];
      std::vector<uint16_t> vector(values.size()), integers(values.size());
      using namespace host::writer::exr;
      EXPECT_TRUE(to_halves(spread.data(), static_cast<ptrdiff_t>(step), values.size(), vector.data()));
      EXPECT_TRUE(
          to_halves_by_integers(spread.data(), static_cast<ptrdiff_t>(step), values.size(), integers.data()));
      EXPECT_TRUE(vector == integers) << step << " " << odd;
      for (size_t i = 0; i < values.size() - 900; ++i) ASSERT_EQ(integers[i], wanted[i]) << values[i];
    }
  }
}

}  // namespace
