#include <qv/anim/curve.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using qv::anim::Curve;
using qv::anim::Key;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double inf = std::numeric_limits<double>::infinity();

class CurveTest : public testing::Test {
 protected:
  double uniform(double least, double most) {
    return std::uniform_real_distribution<double>(least, most)(random_);
  }
  int below(int n) {
    return std::uniform_int_distribution<int>(0, n - 1)(random_);
  }
  // Keys 0.2 to 3 frames apart, of one kind or (kind < 0) of any.
  std::vector<Key> keys(int n, int kind) {
    std::vector<Key> made;
    double time = uniform(-50, 50);
    for (int i = 0; i < n; ++i) {
      const auto k = static_cast<std::uint8_t>(kind < 0 ? below(9) : kind);
      made.push_back(
          {time, uniform(-10, 10), k, below(2) == 0, below(2) == 0, uniform(-4, 4), uniform(-4, 4)});
      time += uniform(0.2, 3);
    }
    return made;
  }
  std::mt19937 random_{20240517};
};

// The segment that the halving search ends on, written down as it is described.
std::size_t segment(const std::vector<Key>& keys, double t) {
  std::size_t lo = 0;
  std::size_t hi = keys.size() - 1;
  while (hi - lo > 1) {
    const std::size_t mid = (lo + hi) / 2;
    (t >= keys[mid].time ? lo : hi) = mid;
  }
  return lo;
}

// The curve in long double, its segments as Bezier curves: no formula shared with the library.
double naive_value(const std::vector<Key>& keys, bool extrapolate, double t) {
  if (keys.empty()) {
    return 0;
  }
  std::vector<double> in;
  std::vector<double> out;
  qv::anim::slopes(keys, in, out);
  const bool before = t <= keys.front().time;
  if (before || t >= keys.back().time || keys.size() == 1) {
    const Key& end = before ? keys.front() : keys.back();
    const long double slope = !extrapolate || keys.size() < 2 ? 0 : before ? in.front() : out.back();
    return static_cast<double>(end.value + slope * (static_cast<long double>(t) - end.time));
  }
  const std::size_t i = segment(keys, t);
  const Key& a = keys[i];
  const Key& b = keys[i + 1];
  if (a.kind == 0) {
    return a.value;
  }
  const long double d = static_cast<long double>(b.time) - a.time;
  const long double u = (static_cast<long double>(t) - a.time) / d;
  long double p[] = {a.value, a.value + d * out[i] / 3, b.value - d * in[i + 1] / 3, b.value};
  for (int level = 3; level > 0; --level) {
    for (int k = 0; k < level; ++k) {
      p[k] += u * (p[k + 1] - p[k]);
    }
  }
  return static_cast<double>(p[0]);
}

TEST_F(CurveTest, AgreesWithALongDoubleEvaluationAndPassesThroughItsKeys) {
  for (int round = 0; round < 400; ++round) {
    const std::vector<Key> made = keys(below(40), -1);
    const bool extrapolate = below(2) == 0;
    const Curve curve(made, extrapolate);
    for (const Key& key : made) {
      EXPECT_EQ(curve.value(key.time), key.value);
    }
    for (int i = 0; i < 100; ++i) {
      const double t = made.empty() ? uniform(-9, 9) : uniform(made.front().time - 2, made.back().time + 2);
      EXPECT_NEAR(curve.value(t), naive_value(made, extrapolate, t), 1e-12)
          << made.size() << " keys at " << t;
    }
  }
}

TEST_F(CurveTest, FindsTheHalvingSegmentWhateverTheOrderAndSpreadOfTheTimes) {
  for (int round = 0; round < 3000; ++round) {
    // Even, crowded around 0 by up to 600 powers of ten, or out of order with NaN among them.
    const bool ordered = round % 3 > 0;
    const double crowding = round % 3 == 1 ? 0 : uniform(0, 300);
    std::vector<double> times(static_cast<std::size_t>(2 + below(40)));
    for (double& time : times) {
      time = uniform(-5, 5) * std::pow(10, uniform(-crowding, crowding));
      time = !ordered && below(12) == 0 ? nan : time;
    }
    if (ordered) {
      times.front() = below(9) == 0 ? -inf : times.front();
      std::sort(times.begin(), times.end());
      times.erase(std::unique(times.begin(), times.end()), times.end());
    } else {
      times.front() = -1e304;
      times.back() = 1e304;
    }
    // Steps, whose values say which segment was found.
    std::vector<Key> made;
    for (const double time : times) {
      made.push_back({time, static_cast<double>(made.size()), 0, false, false, 0, 0});
    }
    const Curve curve(made, false);
    for (const double time : times) {
      for (const double t :
           {time, std::nextafter(time, -inf), std::nextafter(time, inf), time * uniform(0, 2), nan}) {
        if (t > times.front() && t < times.back()) {
          EXPECT_EQ(curve.value(t), static_cast<double>(segment(made, t)))
              << times.size() << " keys at " << t;
        }
      }
    }
    EXPECT_EQ(curve.value(nan), 0);
  }
}

TEST_F(CurveTest, KindsHaveTheShapesTheyPromise) {
  for (int round = 0; round < 200; ++round) {
    const int n = 3 + below(20);
    const std::vector<Key> straight = keys(n, 1);
    const std::vector<Key> smooth = keys(n, 2);
    const std::vector<Key> spline = keys(n, 4);
    const Curve lines(straight, true);
    const Curve soft(smooth, true);
    const Curve natural(spline, true);
    std::vector<double> in;
    std::vector<double> out;
    qv::anim::slopes(smooth, in, out);
    for (std::size_t i = 0; i + 1 < static_cast<std::size_t>(n); ++i) {
      const double part = uniform(0, 1);
      const auto at = [&](const std::vector<Key>& of) {
        return of[i].time + part * (of[i + 1].time - of[i].time);
      };
      EXPECT_NEAR(lines.value(at(straight)), std::lerp(straight[i].value, straight[i + 1].value, part),
                  1e-11);

      // A segment stays between its keys while its slopes are at most three times its own (Fritsch
      // and Carlson), and a local extremum is flat.
      const double rise = (smooth[i + 1].value - smooth[i].value) / (smooth[i + 1].time - smooth[i].time);
      if (out[i] / rise >= 0 && out[i] / rise <= 3 && in[i + 1] / rise >= 0 && in[i + 1] / rise <= 3) {
        const auto [least, most] = std::minmax(smooth[i].value, smooth[i + 1].value);
        EXPECT_GE(soft.value(at(smooth)), least - 1e-12);
        EXPECT_LE(soft.value(at(smooth)), most + 1e-12);
      }
      if (i > 0 && (smooth[i].value > smooth[i - 1].value) == (smooth[i].value > smooth[i + 1].value)) {
        EXPECT_EQ(in[i], 0);
      }

      // A cubic's second difference is its second derivative, which runs on in a straight line.
      const auto bend = [&](double from, double h) {
        const auto second = [&](double t) {
          return (natural.value(t - h) - 2 * natural.value(t) + natural.value(t + h)) / (h * h);
        };
        return 2 * second(from + h) - second(from + 2 * h);
      };
      const double after = bend(spline[i].time, (spline[i + 1].time - spline[i].time) / 4);
      const double before = i == 0 ? 0 : bend(spline[i].time, -(spline[i].time - spline[i - 1].time) / 4);
      EXPECT_NEAR(after, before, 1e-7 * std::max(1.0, std::abs(before)));
      if (i + 2 == static_cast<std::size_t>(n)) {
        EXPECT_NEAR(bend(spline[i + 1].time, (spline[i].time - spline[i + 1].time) / 4), 0, 1e-7);
      }
    }
  }
}

TEST(CurveSlopes, FollowTheKeysKind) {
  struct Row {
    std::string name;
    std::vector<Key> keys;
    std::vector<double> in, out;
  };
  const auto given = [](bool in, bool out) { return Key{1, 1, 6, in, out, 7, -7}; };
  const std::vector<Row> rows = {
      {"one key has no slope", {{0, 3, 6, true, true, 5, 5}}, {0}, {0}},
      {"ends see one neighbour", {{0, 0, 1}, {1, 1, 1}, {3, 0, 1}}, {1, 1, -.5}, {1, -.5, -.5}},
      {"extremum is flat", {{0, 0, 2}, {1, 1, 2}, {2, 0, 2}}, {1, 0, -1}, {1, 0, -1}},
      {"plateau is flat", {{0, 1, 2}, {1, 1, 2}, {2, 5, 2}}, {0, 0, 4}, {0, 0, 4}},
      {"ramp is central", {{0, 0, 2}, {1, 1, 2}, {2, 4, 2}}, {1, 2, 3}, {1, 2, 3}},
      {"unknown kinds are central", {{0, 0, 9}, {1, 1, 255}, {2, 0, 3}}, {1, 0, -1}, {1, 0, -1}},
      {"given in serves both", {{0, 0, 5}, given(true, false), {2, 4, 0}}, {0, 7, 0}, {0, 7, 0}},
      {"given out", {{0, 0, 5}, given(false, true), {2, 4, 0}}, {0, 2, 0}, {0, -7, 0}},
      {"spline of two is a line", {{0, 1, 4}, {4, 3, 4}}, {.5, .5}, {.5, .5}},
      {"spline of two at one time", {{2, 1, 4}, {2, 3, 4}}, {2, 2}, {2, 2}},
      {"line of two at one time", {{2, 1, 1}, {2, 3, 1}}, {2 / 1e-9, 2 / 1e-9}, {2 / 1e-9, 2 / 1e-9}},
  };
  for (const Row& row : rows) {
    std::vector<double> in{99};
    std::vector<double> out{99};
    qv::anim::slopes(row.keys, in, out);
    EXPECT_EQ(in, row.in) << row.name;
    EXPECT_EQ(out, row.out) << row.name;
  }
}

TEST(CurveErrors, NameWhatIsWrongWithTheKeys) {
  const auto error = [](const std::vector<Key>& keys) {
    try {
      const Curve curve(keys, false);
    } catch (const std::runtime_error& e) {
      return std::string(dynamic_cast<const qv::anim::NotCompilable&>(e).what());
    }
    return std::string("none");
  };
  EXPECT_EQ(error({{0, 1, 4}, {0, 2, 4}}), "equal key times");
  EXPECT_EQ(error({{1, 1, 3}, {0, 2, 3}}), "none");
  EXPECT_EQ(error({{nan, 1, 3}, {nan, 2, 3}, {inf, 2, 3}, {inf, 2, 3}}), "none");
  // Steps of 1 and -1: the middle row's diagonal cancels.
  EXPECT_EQ(error({{0, 1, 3}, {1, 2, 4}, {0, 3, 3}}), "ZeroDivisionError");
}

}  // namespace
