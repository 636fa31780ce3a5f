#include <qv/nodes/time/frames.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

using namespace qv::nodes::time;
using Frames = std::vector<std::int64_t>;
using Weights = std::vector<std::pair<std::int64_t, double>>;

constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();

TEST(Frames, RoundBothWaysAndSaturate) {
  struct Row {
    double t;
    std::int64_t nearest, down;
  };
  const Row rows[] = {
      {2.5, 3, 2},
      {-2.5, -2, -3},
      {2.9999999999, 3, 3},
      {2.99999, 3, 2},
      {-1e-10, 0, 0},
      {nan, 0, 0},
      {inf, highest, highest},
      {-inf, lowest, lowest},
      {0x1p63, highest, highest},
      {-0x1p63, lowest, lowest},
      {-0x1.1p63, lowest, lowest},
      {0x1.fffffffffffffp62, highest - 1023, highest - 1023},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(whole(row.t, true), row.nearest) << row.t;
    EXPECT_EQ(whole(row.t, false), row.down) << row.t;
    EXPECT_EQ(timeoffset_frame(row.t, 0, false, 0, 0, true), row.nearest);
    EXPECT_EQ(framehold_frame(0, row.t, 0, false), row.down);
  }
  EXPECT_EQ(timeoffset_frame(3, 0, true, 1, 10, false), 8);
  EXPECT_EQ(timeoffset_frame(3, 5, false, 1, 10, false), -2);
  EXPECT_EQ(timeoffset_frame(0x1p63, 0, true, highest, highest, false), highest);  // 2^64 - 2^63 saturates
  EXPECT_EQ(framehold_frame(17, 10, 5, false), 15);
  EXPECT_EQ(framehold_frame(9, 10, 5, false), 5);
  EXPECT_EQ(framehold_frame(nan, 10, 5, false), 0);
}

TEST(Frames, EdgeModesArePeriodicUpToTheEndsOf64Bits) {
  std::mt19937_64 random(99);
  const auto some = [&] {
    const auto any = static_cast<std::int64_t>(random());
    const std::int64_t near_end = random() % 2 == 0 ? lowest : highest;
    return random() % 3 == 0   ? any
           : random() % 2 == 0 ? any % 20
                               : near_end - (near_end < 0 ? -1 : 1) * (any & 15);
  };
  for (int round = 0; round < 20'000; ++round) {
    const std::int64_t first = some();
    const std::int64_t last = some();
    const std::int64_t frame = some();
    const auto read = [&](std::int64_t f, int mode) { return edge_frame(f, first, last, mode); };
    const bool inside = first <= frame && frame <= last;
    EXPECT_EQ(read(frame, 0), frame);
    EXPECT_EQ(read(frame, 4), inside ? std::optional(frame) : std::nullopt);
    EXPECT_EQ(read(frame, 3), inside ? frame : frame < first ? first : last);
    EXPECT_EQ(read(frame, -7), read(frame, 3));
    if (first > last) {
      EXPECT_EQ(read(frame, 1), read(frame, 3));
      EXPECT_EQ(read(frame, 2), read(frame, 3));
      continue;
    }
    const std::int64_t looped = *read(frame, 1);
    const std::int64_t swung = *read(frame, 2);
    EXPECT_TRUE(first <= looped && looped <= last && first <= swung && swung <= last);
    // One period on, and for the ping-pong mirrored in the first frame, the same is read.
    std::int64_t length = 0;
    std::int64_t other = 0;
    if (!__builtin_sub_overflow(last, first, &length) && !__builtin_add_overflow(length, 1, &length)) {
      EXPECT_TRUE(__builtin_add_overflow(frame, length, &other) || read(other, 1) == looped);
      EXPECT_TRUE(__builtin_mul_overflow(length - 1, 2, &other) ||
                  __builtin_add_overflow(frame, other, &other) || length < 2 || read(other, 2) == swung);
      EXPECT_TRUE(__builtin_sub_overflow(first, frame, &other) ||
                  __builtin_add_overflow(first, other, &other) || length < 2 || read(other, 2) == swung);
    }
  }
  EXPECT_EQ(edge_frame(12, 0, 9, 1), 2);
  EXPECT_EQ(edge_frame(10, 0, 9, 2), 8);
  EXPECT_EQ(edge_frame(20, 5, 5, 2), 5);
}

TEST(Frames, BlendsListTheirFrames) {
  EXPECT_EQ(frameblend_frames(100, 3, false, 0, 0), (Frames{100, 99, 98}));
  EXPECT_EQ(frameblend_frames(100, lowest, false, 0, 0), (Frames{100}));
  EXPECT_EQ(frameblend_frames(lowest + 1, 3, false, 0, 0), (Frames{lowest + 1, lowest, lowest}));
  EXPECT_EQ(frameblend_frames(0, 0, true, 2.5, 0.5), (Frames{0, 1, 2}));
  EXPECT_EQ(frameblend_frames(0, 0, true, -inf, inf).back(), lowest + 255);
  EXPECT_EQ(frameblend_frames(0, 0, true, inf, inf), (Frames{highest}));
  EXPECT_EQ(frameblend_frames(0, 0, true, 1000, nan).size(), 256U);
}

TEST(Frames, RetimesFillWhatIsOpen) {
  struct Row {
    bool first_set, last_set;
    double speed;
    RetimeRanges expected;
  };
  // The input is 1 to 100; the output, where set, starts at 11 and ends at 60.
  const Row rows[] = {
      {true, true, 7, {1, 100, 11, 60, 2}},     {true, false, 4, {1, 100, 11, 35, 4}},
      {false, true, 4, {1, 100, 36, 60, 4}},    {false, false, 0, {1, 100, 1, 100, 0}},
      {false, false, -2, {1, 100, 1, -50, -2}},
  };
  for (const Row& row : rows) {
    const RetimeRanges got =
        retime_ranges(1, 70, 0, false, 100, true, 11, row.first_set, 60, row.last_set, row.speed);
    EXPECT_EQ(std::tie(got.in_first, got.in_last, got.out_first, got.out_last, got.speed),
              std::tie(row.expected.in_first, row.expected.in_last, row.expected.out_first,
                       row.expected.out_last, row.expected.speed));
  }
  EXPECT_EQ(retime_ranges(1, 100, 0, false, 0, false, 9, true, 2, true, 1).speed, 100 / 1e-9);
  const RetimeRanges twice{1, 100, 1, 50, 2};
  EXPECT_EQ(retime_pos(50, twice, 4, 4), 98);
  EXPECT_EQ(retime_pos(51, twice, 4, 1), 0);
  EXPECT_EQ(retime_pos(0, twice, 0, 4), -2);
  EXPECT_EQ(retime_pos(0, twice, 4, 0), std::nullopt);
  EXPECT_EQ(retime_pos(10, {0, 0, 10.5, 20.9999999, 2}, 4, 4),
            -1);  // inside from the floor of the first frame
  EXPECT_EQ(retime_pos(21, {0, 0, 10.5, 20.9999999, 2}, 4, 4), 21);  // a hair short of 21 is 21
}

TEST(Frames, WeightsSumAsPromised) {
  EXPECT_EQ(box_weights(10, 1), (Weights{{10, 1}}));
  EXPECT_EQ(box_weights(10.5, 1), (Weights{{10, .5}, {11, .5}}));
  EXPECT_EQ(box_weights(10, 0), (Weights{{10, 1}}));
  EXPECT_EQ(shutter_weights(10, 3, 1, 0, 0), (Weights{{10, 2}, {11, 1}}));
  EXPECT_EQ(shutter_weights(10, 0, 3, 1, 0), (Weights{{12, 1}}));
  EXPECT_EQ(shutter_weights(-inf, 2, 1, 1, 0), (Weights{{lowest, 2}}));
  for (const double bad : {nan, inf, -inf}) {
    EXPECT_TRUE(box_weights(bad, 1).empty());
    EXPECT_TRUE(box_weights(1, bad).empty());
  }
  EXPECT_THROW(box_weights(0, 1e300), std::length_error);
  EXPECT_TRUE(box_weights(1e300, 1).empty());

  std::mt19937 random(5);
  std::uniform_real_distribution<double> uniform(-20, 20);
  for (int round = 0; round < 5000; ++round) {
    const double t = uniform(random);
    const double width = uniform(random);
    const Weights box = box_weights(t, width);
    long double sum = 0;
    long double mean = 0;
    for (std::size_t i = 0; i < box.size(); ++i) {
      EXPECT_EQ(box[i].first, box[0].first + static_cast<std::int64_t>(i));
      EXPECT_GT(box[i].second, 0);
      // A frame that the box covers whole weighs one part in its width.
      if (i > 0 && i + 1 < box.size()) {
        EXPECT_NEAR(box[i].second, 1 / width, 1e-14);
      }
      sum += box[i].second;
      mean += box[i].second * static_cast<long double>(box[i].first);
    }
    EXPECT_NEAR(static_cast<double>(sum), 1, 1e-14);
    EXPECT_NEAR(static_cast<double>(mean), t, 0.5);

    const int mode = static_cast<int>(random() % 4);
    const int samples = static_cast<int>(random() % 40) - 2;
    const double custom = uniform(random);
    const double opens[] = {t - width / 2, t, t - width, t + custom};
    std::map<std::int64_t, double> counts;
    const int n = std::max(samples, 1);
    for (int k = 0; k < n; ++k) {
      const double part = n == 1 ? 0.5 : static_cast<double>(k) / (n - 1);
      counts[std::llround(std::floor(opens[mode] + part * width + 0.5))] += 1;
    }
    EXPECT_EQ(shutter_weights(t, samples, width, mode, custom), Weights(counts.begin(), counts.end()));
  }
}

}  // namespace
