#include <qv/anim/curve.h>

#include "tests/support/error.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

namespace {

using qv::anim::Curve;
using Keys = std::vector<qv::anim::Key>;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();

std::mt19937 bits(20240517);

double uniform(double least, double most) {
  return std::uniform_real_distribution<double>(least, most)(bits);
}

// The segment that the halving search ends on, written down as it is described.
size_t segment(const Keys& keys, double t) {
  size_t lo = 0;
  for (size_t hi = keys.size() - 1; hi - lo > 1;) {
    const size_t mid = (lo + hi) / 2;
    (t >= keys[mid].time ? lo : hi) = mid;
  }
  return lo;
}

// The cubic from a to b in long double as a Bezier curve: no formula of the library's.
double bezier(long double a, long double leave, long double b, long double arrive, long double u) {
  long double p[] = {a, a + leave / 3, b - arrive / 3, b};
  for (const int k : {0, 1, 2, 0, 1, 0}) p[k] += u * (p[k + 1] - p[k]);
  return static_cast<double>(p[0]);
}

TEST(Curve, HasTheShapeThatItsKeysAskFor) {
  for (unsigned long round = 0; round < 1000; ++round) {
    Keys keys(2 + bits() % 30);
    double time = uniform(-50, 50);
    for (auto& key : keys) {
      // All keys of one kind, or each of any.
      const auto kind = round % 2 == 0 ? bits() % 9 : round / 2 % 9;
      key = {time += uniform(0.2, 3), uniform(-9, 9),  static_cast<uint8_t>(kind),
             bits() % 2 == 0,         bits() % 2 == 0, uniform(-4, 4),
             uniform(-4, 4)};
    }
    std::vector<double> in, out;
    qv::anim::slopes(keys, in, out);
    const bool extrapolate = bits() % 2 == 0;
    const Curve curve(keys, extrapolate);
    const double on = extrapolate ? 2 : 0;
    EXPECT_NEAR(curve.value(keys[0].time - 2), keys[0].value - on * in[0], 1e-12);
    EXPECT_NEAR(curve.value(time + 2), keys.back().value + on * out.back(), 1e-12);
    EXPECT_EQ(curve.value(time), keys.back().value);
    double last_bend = 0;
    for (size_t i = 0; i + 1 < keys.size(); ++i) {
      const auto &a = keys[i], &b = keys[i + 1];
      const double d = b.time - a.time;
      const double t = a.time + uniform(0, 1) * d;
      const double u = a.kind == 0 ? 0 : (t - a.time) / d;
      const double value = curve.value(t);
      EXPECT_NEAR(value, bezier(a.value, d * out[i], b.value, d * in[i + 1], u), 1e-12);
      EXPECT_EQ(curve.value(a.time), a.value);
      if (a.kind == 1 && b.kind == 1) {
        EXPECT_NEAR(value, std::lerp(a.value, b.value, u), 1e-12);
      }
      const auto [flatter, steeper] =
          std::minmax({d * out[i] / (b.value - a.value), d * in[i + 1] / (b.value - a.value)});
      if (a.kind == 2 && b.kind == 2 && flatter >= 0 && steeper <= 3) {  // Fritsch and Carlson's bound
        EXPECT_TRUE(std::min(a.value, b.value) - 1e-12 < value && value < std::max(a.value, b.value) + 1e-12);
      }
      // A cubic's second difference is its second derivative, which runs on in a straight line.
      const auto bend = [&](double from, double h) {
        const auto second = [&](double x) {
          return (curve.value(x - h) - 2 * curve.value(x) + curve.value(x + h)) / h / h;
        };
        return 2 * second(from + h) - second(from + 2 * h);
      };
      if (round % 18 != 9) continue;
      EXPECT_NEAR(bend(a.time, d / 4), last_bend, 1e-7 * (1 + std::abs(last_bend)));
      last_bend = bend(b.time, -d / 4);
    }
    EXPECT_NEAR(last_bend, 0, 1e-7);
  }
}

TEST(Curve, FindsTheHalvingSegmentWhateverTheOrderAndSpreadOfTheTimes) {
  for (int round = 0; round < 3000; ++round) {
    // Even, crowded around 0 by up to 600 powers of ten, or out of order with NaN among them. Steps,
    // whose values say which segment was found.
    const double crowding = round % 3 == 1 ? 0 : uniform(0, 300);
    std::vector<double> times(2 + bits() % 40);
    for (double& time : times)
      time = round % 3 == 0 && bits() % 12 == 0 ? nan
                                                : uniform(-5, 5) * std::pow(10, uniform(-crowding, crowding));
    times.front() = round % 9 > 4 ? -inf : -1e304;
    times.back() = 1e304;
    if (round % 3 > 0) std::sort(times.begin(), times.end());
    Keys keys;
    for (const double time : times) keys.push_back({time, static_cast<double>(keys.size())});
    const Curve curve(keys, false);
    for (const double time : times) {
      for (const double t :
           {time, std::nextafter(time, -inf), std::nextafter(time, inf), time * uniform(0, 2), nan}) {
        if (t <= times.front() || t >= times.back()) continue;
        EXPECT_EQ(curve.value(t), static_cast<double>(segment(keys, t))) << keys.size() << " keys at " << t;
      }
    }
  }
}

TEST(Curve, SlopesAndErrorsOfFewKeys) {
  using List = std::vector<double>;
  const std::tuple<Keys, List, List> rows[] = {
      {{{0, 3, 6, true, true, 5, 5}}, {0}, {0}},
      {{{0, 0, 1}, {1, 1, 1}, {3, 0, 1}}, {1, 1, -.5}, {1, -.5, -.5}},
      {{{0, 0, 2}, {1, 1, 2}, {2, 1, 2}, {3, 2, 2}, {4, 5, 2}}, {1, 0, 0, 2, 3}, {1, 0, 0, 2, 3}},
      {{{0, 0, 9}, {1, 1, 255}, {2, 0, 3}}, {1, 0, -1}, {1, 0, -1}},
      {{{0, 0, 5}, {1, 1, 6, true, false, 7, -7}, {2, 4, 6, false, true, 7, -7}}, {0, 7, 3}, {0, 7, -7}},
      {{{2, 1, 4}, {2, 3, 4}}, {2, 2}, {2, 2}},
      {{{2, 1, 1}, {2, 3, 1}}, {2 / 1e-9, 2 / 1e-9}, {2 / 1e-9, 2 / 1e-9}},
  };
  for (const auto& [keys, expected_in, expected_out] : rows) {
    List in{99}, out{99};
    qv::anim::slopes(keys, in, out);
    EXPECT_EQ(std::tie(in, out), std::tie(expected_in, expected_out));
  }
  using qv::anim::NotCompilable;
  using support::error_of;
  const auto at_4 = [](const Keys& keys) { return Curve(keys, true).value(4); };
  EXPECT_EQ(at_4({}), 0);
  EXPECT_EQ(at_4({{0, 3, 6, false, true, 0, 9}}), 3);
  EXPECT_EQ(at_4({{1, 1, 0}, {0, 2, 0}, {nan, 1, 3}, {nan, 2, 3}, {inf, 7, 5}, {inf, 2, 3}}), 2);
  EXPECT_EQ(error_of<NotCompilable>([&] { at_4({{0, 1, 4}, {0, 2, 4}}); }), "equal key times");
  // Steps of 1 and -1 cancel.
  EXPECT_EQ(error_of<NotCompilable>([&] { at_4({{0, 1, 3}, {1, 2, 4}, {0, 3, 3}}); }), "ZeroDivisionError");
}

}  // namespace
