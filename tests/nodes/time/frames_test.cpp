#include <qv/nodes/time/frames.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <random>
#include <stdexcept>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace qv::nodes::time;
using Frames = std::vector<int64_t>;
using Weights = std::vector<std::pair<int64_t, double>>;

constexpr int64_t lowest = std::numeric_limits<int64_t>::min();
constexpr int64_t highest = std::numeric_limits<int64_t>::max();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();

TEST(Frames, RoundBothWaysAndSaturate) {
  const std::tuple<double, int64_t, int64_t> rows[] = {
      {2.5, 3, 2},
      {-2.5, -2, -3},
      {2.9999999999, 3, 3},
      {-1e-10, 0, 0},
      {nan, 0, 0},
      {inf, highest, highest},
      {-inf, lowest, lowest},
      {0x1p63, highest, highest},
      {-0x1.1p63, lowest, lowest},
      {0x1.fffffffffffffp62, highest - 1023, highest - 1023},
  };
  for (const auto& [t, nearest, down] : rows) {
    EXPECT_EQ(whole(t, true), nearest) << t;
    EXPECT_EQ(timeoffset_frame(t, 0, false, 0, 0, true), nearest);
    EXPECT_EQ(framehold_frame(0, t, 0, false), down);
  }
  EXPECT_EQ(timeoffset_frame(3, 5, true, 1, 10, false), 13);
  EXPECT_EQ(timeoffset_frame(0x1p63, 0, true, highest, highest, false), highest);  // 2^64 - 2^63
  EXPECT_EQ(framehold_frame(17, 10, 5, false), 15);
  EXPECT_EQ(framehold_frame(9, 10, 5, false), 5);
}

TEST(Frames, EdgeModesArePeriodicUpToTheEndsOf64Bits) {
  for (const int64_t base : {int64_t{0}, lowest + 60, highest - 60}) {
    for (int64_t length = 1; length < 9; ++length) {
      // Walk outwards from the first frame, looping to the left and swinging to the right.
      int64_t looped = 0;
      int64_t swung = 0;
      int64_t step = length > 1 ? 1 : 0;
      for (int64_t away = 0; away < 60; ++away) {
        const auto read = [&](int64_t f, int mode) {
          return edge_frame(base + f, base, base + length - 1, mode);
        };
        EXPECT_EQ(read(-away, 1), base + looped);
        EXPECT_EQ(read(away, 1), base + away % length);
        EXPECT_EQ(read(away, 2), base + swung);
        EXPECT_EQ(read(-away, 2), base + swung);
        EXPECT_EQ(read(away, 0), base + away);
        EXPECT_EQ(read(-away, 3), base);
        EXPECT_EQ(read(away, -7), base + std::min(away, length - 1));
        EXPECT_EQ(read(away, 4).has_value(), away < length);
        looped = (looped == 0 ? length : looped) - 1;
        swung += step;
        step = swung == 0 || swung == length - 1 ? -step : step;
      }
    }
  }
  EXPECT_EQ(edge_frame(highest, lowest, highest - 1, 1), lowest);
  EXPECT_EQ(edge_frame(highest, lowest, highest - 1, 2), highest - 2);
  for (const int mode : {1, 2, 3}) {
    EXPECT_EQ(edge_frame(5, 9, 2, mode), 9);  // a range of no frames holds
    EXPECT_EQ(edge_frame(9, 9, lowest, mode), lowest);
  }
}

TEST(Frames, BlendsAndRetimes) {
  EXPECT_EQ(frameblend_frames(100, lowest, false, 0, 0), (Frames{100}));
  EXPECT_EQ(frameblend_frames(lowest + 1, 3, false, 0, 0), (Frames{lowest + 1, lowest, lowest}));
  EXPECT_EQ(frameblend_frames(0, 0, true, 2.5, 0.5), (Frames{0, 1, 2}));
  EXPECT_EQ(frameblend_frames(0, 0, true, -inf, inf).back(), lowest + 255);
  EXPECT_EQ(frameblend_frames(0, 0, true, inf, inf), (Frames{highest}));

  // Input 1 to 100; output, where set, 11 to 60: the output range and the speed that follow.
  using Row = std::array<double, 6>;
  for (const auto [first_set, last_set, given, first, last, speed] :
       {Row{1, 1, 7, 11, 60, 2}, Row{1, 0, 4, 11, 35, 4}, Row{0, 1, 4, 36, 60, 4}, Row{0, 0, 0, 1, 100, 0}}) {
    const RetimeRanges got =
        retime_ranges(1, 70, 0, false, 100, true, 11, first_set > 0, 60, last_set > 0, given);
    EXPECT_EQ(std::tie(got.out_first, got.out_last, got.speed), std::tie(first, last, speed));
  }
  const RetimeRanges half{0, 0, 10.5, 20.9999999, 2};  // from frame 10, and a hair short of 21 is 21
  EXPECT_EQ(retime_pos(10, half, 4, 4), -1);
  EXPECT_EQ(retime_pos(21, half, 4, 4), 21);
  EXPECT_EQ(retime_pos(22, half, 4, 1), -1);
  EXPECT_EQ(retime_pos(9, half, 0, 4), -3);
  EXPECT_EQ(retime_pos(9, half, 4, 0), std::nullopt);
}

TEST(Frames, WeightsSumAsPromised) {
  EXPECT_EQ(box_weights(10.5, 1), (Weights{{10, .5}, {11, .5}}));
  EXPECT_EQ(box_weights(10, 0), (Weights{{10, 1}}));
  EXPECT_EQ(box_weights(1, -inf), (Weights{{1, 1}}));
  for (const auto& [t, width] : {std::pair{nan, 1.0}, {-inf, 1.0}, {1e300, 1.0}, {1.0, inf}, {1.0, nan}})
    EXPECT_TRUE(box_weights(t, width).empty()) << t << " " << width;
  EXPECT_EQ(box_weights(10 + 0x1p-25, 1), (Weights{{10, 1 - 0x1p-25}, {11, 0x1p-25}}));  // 3e-8 of a frame
  EXPECT_EQ(box_weights(10 + 0x1p-31, 1).size(), 1U);                                    // 5e-10
  EXPECT_THROW(box_weights(0, 1e300), std::length_error);
  EXPECT_EQ(shutter_weights(10, 3, 1, 0, 0), (Weights{{10, 2}, {11, 1}}));
  EXPECT_EQ(shutter_weights(-inf, 2, 1, 1, 0), (Weights{{lowest, 2}}));

  std::mt19937 random(5);
  std::uniform_real_distribution<double> uniform(-20, 20);
  for (int round = 0; round < 5000; ++round) {
    const double t = uniform(random);
    const double width = uniform(random);
    long double sum = 0;
    for (const auto& [frame, weight] : box_weights(t, width)) {
      const auto f = static_cast<double>(frame);
      const double half = std::max(width, 1e-6) / 2;
      EXPECT_NEAR(weight, (std::min(f + .5, t + half) - std::max(f - .5, t - half)) / (2 * half), 1e-8);
      sum += weight;
    }
    EXPECT_NEAR(static_cast<double>(sum), 1, 1e-14);

    const size_t mode = random() % 4;
    const double custom = uniform(random);
    const double opens[] = {t - width / 2, t, t - width, t + custom};
    const int n = static_cast<int>(random() % 40);
    std::map<int64_t, double> counts;
    for (int k = 0; k < std::max(n, 1); ++k)
      counts[whole(opens[mode] + (n < 2 ? 0.5 : static_cast<double>(k) / (n - 1)) * width, true)] += 1;
    EXPECT_EQ(shutter_weights(t, n, width, static_cast<int>(mode), custom),
              Weights(counts.begin(), counts.end()));
  }
}

}  // namespace
