#include <qv/anim/curve.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using qv::anim::Curve;
using qv::anim::Key;
using Keys = std::vector<Key>;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();

std::mt19937 random_bits(20240517);

double uniform(double least, double most) {
  return std::uniform_real_distribution<double>(least, most)(random_bits);
}

int below(int n) {
  return std::uniform_int_distribution<int>(0, n - 1)(random_bits);
}

// Keys 0.2 to 3 frames apart, of one kind or (kind < 0) of any.
Keys some_keys(int n, int kind) {
  Keys keys;
  for (double time = uniform(-50, 50); n > 0; --n, time += uniform(0.2, 3)) {
    const auto k = static_cast<std::uint8_t>(kind < 0 ? below(9) : kind);
    keys.push_back({time, uniform(-10, 10), k, below(2) == 0, below(2) == 0, uniform(-4, 4), uniform(-4, 4)});
  }
  return keys;
}

// The segment that the halving search ends on, written down as it is described.
std::size_t segment(const Keys& keys, double t) {
  std::size_t lo = 0;
  for (std::size_t hi = keys.size() - 1; hi - lo > 1;) {
    const std::size_t mid = (lo + hi) / 2;
    (t >= keys[mid].time ? lo : hi) = mid;
  }
  return lo;
}

// The curve between its ends in long double, its segments as Bezier curves: no formula of the library's.
double naive_value(const Keys& keys, const std::vector<double>& in, const std::vector<double>& out,
                   double t) {
  const std::size_t i = segment(keys, t);
  const long double d = static_cast<long double>(keys[i + 1].time) - keys[i].time;
  const long double u = keys[i].kind == 0 ? 0 : (static_cast<long double>(t) - keys[i].time) / d;
  const long double a = keys[i].value;
  const long double b = keys[i + 1].value;
  long double p[] = {a, a + d * out[i] / 3, b - d * in[i + 1] / 3, b};
  for (const int k : {0, 1, 2, 0, 1, 0}) {
    p[k] += u * (p[k + 1] - p[k]);
  }
  return static_cast<double>(p[0]);
}

TEST(Curve, AgreesWithALongDoubleEvaluationAndPassesThroughItsKeys) {
  EXPECT_EQ(Curve({}, true).value(3), 0);
  for (int round = 0; round < 400; ++round) {
    const Keys keys = some_keys(1 + below(40), -1);
    const Curve curve(keys, round % 2 == 0);
    std::vector<double> in;
    std::vector<double> out;
    qv::anim::slopes(keys, in, out);
    for (const Key& key : keys) {
      EXPECT_EQ(curve.value(key.time), key.value);
      const double t = std::lerp(keys.front().time, keys.back().time, uniform(0, 1));
      EXPECT_NEAR(curve.value(t), keys.size() > 1 ? naive_value(keys, in, out, t) : key.value, 1e-12);
    }
    const double on = round % 2 == 0 ? 2 : 0;
    EXPECT_NEAR(curve.value(keys.front().time - 2), keys.front().value - on * in.front(), 1e-12);
    EXPECT_NEAR(curve.value(keys.back().time + 2), keys.back().value + on * out.back(), 1e-12);
  }
}

TEST(Curve, FindsTheHalvingSegmentWhateverTheOrderAndSpreadOfTheTimes) {
  for (int round = 0; round < 3000; ++round) {
    // Even, crowded around 0 by up to 600 powers of ten, or out of order with NaN among them.
    const double crowding = round % 3 == 1 ? 0 : uniform(0, 300);
    std::vector<double> times(static_cast<std::size_t>(2 + below(40)));
    for (double& time : times) {
      time = round % 3 == 0 && below(12) == 0 ? nan
                                              : uniform(-5, 5) * std::pow(10, uniform(-crowding, crowding));
    }
    times.front() = round % 9 > 4 ? -inf : -1e304;
    times.back() = 1e304;
    if (round % 3 > 0) {
      std::sort(times.begin(), times.end());
    }
    // Steps, whose values say which segment was found.
    Keys keys;
    for (const double time : times) {
      keys.push_back({time, static_cast<double>(keys.size()), 0, false, false, 0, 0});
    }
    const Curve curve(keys, false);
    for (const double time : times) {
      for (const double t :
           {time, std::nextafter(time, -inf), std::nextafter(time, inf), time * uniform(0, 2), nan}) {
        if (!(t <= times.front() || t >= times.back())) {
          EXPECT_EQ(curve.value(t), static_cast<double>(segment(keys, t))) << keys.size() << " keys at " << t;
        }
      }
    }
  }
}

TEST(Curve, KindsHaveTheShapesTheyPromise) {
  for (int round = 0; round < 300; ++round) {
    const std::size_t n = 3 + static_cast<std::size_t>(below(20));
    const Keys keys = some_keys(static_cast<int>(n), 1 + round % 3 + round % 3 / 2);
    const Curve curve(keys, false);
    const auto bend = [&](double from, double h) {
      // A cubic's second difference is its second derivative, which runs on in a straight line.
      const auto second = [&](double t) {
        return (curve.value(t - h) - 2 * curve.value(t) + curve.value(t + h)) / h / h;
      };
      return 2 * second(from + h) - second(from + 2 * h);
    };
    std::vector<double> in;
    std::vector<double> out;
    qv::anim::slopes(keys, in, out);
    double last_bend = 0;
    for (std::size_t i = 0; i + 1 < n; ++i) {
      const auto [a, b] = std::pair(keys[i], keys[i + 1]);
      const double part = uniform(0, 1);
      const double value = curve.value(a.time + part * (b.time - a.time));
      const double rise = (b.value - a.value) / (b.time - a.time);
      if (a.kind == 1) {
        EXPECT_NEAR(value, std::lerp(a.value, b.value, part), 1e-11);
      } else if (a.kind == 4) {
        EXPECT_NEAR(bend(a.time, (b.time - a.time) / 4), last_bend,
                    1e-7 * std::max(1.0, std::abs(last_bend)));
        last_bend = bend(b.time, (a.time - b.time) / 4);
      } else if (std::min(out[i] / rise, in[i + 1] / rise) >= 0 &&
                 std::max(out[i] / rise, in[i + 1] / rise) <= 3) {
        // Between its keys while its slopes are at most three times its own (Fritsch and Carlson).
        EXPECT_TRUE(std::min(a.value, b.value) - 1e-12 < value && value < std::max(a.value, b.value) + 1e-12);
      }
    }
    EXPECT_NEAR(last_bend, 0, 1e-7);
  }
}

TEST(Curve, SlopesAndErrorsOfSmallSets) {
  struct Row {
    Keys keys;
    std::vector<double> in, out;
  };
  const Row rows[] = {
      {{{0, 3, 6, true, true, 5, 5}}, {0}, {0}},
      {{{0, 0, 1}, {1, 1, 1}, {3, 0, 1}}, {1, 1, -.5}, {1, -.5, -.5}},
      {{{0, 0, 2}, {1, 1, 2}, {2, 1, 2}, {3, 2, 2}, {4, 5, 2}}, {1, 0, 0, 2, 3}, {1, 0, 0, 2, 3}},
      {{{0, 0, 9}, {1, 1, 255}, {2, 0, 3}}, {1, 0, -1}, {1, 0, -1}},
      {{{0, 0, 5}, {1, 1, 6, true, false, 7, -7}, {2, 4, 6, false, true, 7, -7}}, {0, 7, 3}, {0, 7, -7}},
      {{{2, 1, 4}, {2, 3, 4}}, {2, 2}, {2, 2}},
      {{{2, 1, 1}, {2, 3, 1}}, {2 / 1e-9, 2 / 1e-9}, {2 / 1e-9, 2 / 1e-9}},
  };
  for (const auto& [keys, expected_in, expected_out] : rows) {
    std::vector<double> in{99};
    std::vector<double> out{99};
    qv::anim::slopes(keys, in, out);
    EXPECT_EQ(in, expected_in);
    EXPECT_EQ(out, expected_out);
  }
  const auto error = [](const Keys& keys) {
    try {
      const Curve curve(keys, false);
    } catch (const qv::anim::NotCompilable& e) {
      return std::string(e.what());
    }
    return std::string("none");
  };
  EXPECT_EQ(error({{0, 1, 4}, {0, 2, 4}}), "equal key times");
  EXPECT_EQ(error({{1, 1, 3}, {0, 2, 3}, {nan, 1, 3}, {nan, 2, 3}, {inf, 2, 3}, {inf, 2, 3}}), "none");
  EXPECT_EQ(error({{0, 1, 3}, {1, 2, 4}, {0, 3, 3}}), "ZeroDivisionError");  // steps of 1 and -1 cancel
}

}  // namespace
