#include <qv/anim/curve.h>

#include "bench/nodes/topics.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <boost/math/interpolators/cubic_hermite.hpp>
#include <gsl/gsl_spline.h>

namespace {

// One natural spline in all three libraries. Boost's interpolator takes slopes, so it is given ours;
// GSL solves for its own.
class Splines {
 public:
  Splines(size_t n, std::mt19937& random) : x(n), y(n) {
    std::uniform_real_distribution<double> step(0.5, 10);
    std::uniform_real_distribution<double> value(-10, 10);
    for (size_t i = 0; i < n; ++i) {
      x[i] = (i == 0 ? 0 : x[i - 1]) + step(random);
      y[i] = value(random);
      keys.push_back({x[i], y[i], 4, false, false, 0, 0});
    }
    qv::anim::slopes(keys, in, out);
    gsl_spline_init(gsl.get(), x.data(), y.data(), n);
  }

  std::vector<double> x, y, in, out;
  std::vector<qv::anim::Key> keys;
  std::unique_ptr<gsl_spline, void (*)(gsl_spline*)> gsl{gsl_spline_alloc(gsl_interp_cspline, x.size()),
                                                         gsl_spline_free};
  std::unique_ptr<gsl_interp_accel, void (*)(gsl_interp_accel*)> accelerator{gsl_interp_accel_alloc(),
                                                                             gsl_interp_accel_free};
};

// Adds up `evaluate` over the times.
template <class Evaluate>
std::function<void()> sum_over(const std::vector<double>& times, Evaluate evaluate) {
  return [&times, evaluate] {
    double sum = 0;
    for (const double t : times) {
      sum += evaluate(t);
    }
    bench::keep(sum);
  };
}

void measure(bench::Report& report, size_t n, bool ascending) {
  const std::string name =
      "Curve::value, " + std::to_string(n) + " keys, " + (ascending ? "ascending" : "random") + " times";
  if (!report.wants(name)) {
    return;
  }
  std::mt19937 random(7);
  const Splines splines(n, random);
  const qv::anim::Curve curve(splines.keys, false);
  const boost::math::interpolators::cubic_hermite<std::vector<double>> hermite(
      std::vector<double>(splines.x), std::vector<double>(splines.y), std::vector<double>(splines.in));

  std::vector<double> times(report.quick() ? 10'000 : 100'000);
  std::uniform_real_distribution<double> time(splines.x.front(), splines.x.back());
  std::generate(times.begin(), times.end(), [&] { return time(random); });
  if (ascending) {
    std::sort(times.begin(), times.end());
  }
  const auto ours = [&](double t) { return curve.value(t); };
  const auto gsl = [&](double t) { return gsl_spline_eval(splines.gsl.get(), t, splines.accelerator.get()); };
  const auto boost = [&](double t) { return hermite(t); };
  for (const double t : times) {
    report.require(std::abs(ours(t) - gsl(t)) < 1e-9, name + ", the answer of gsl");
    report.require(std::abs(ours(t) - boost(t)) < 1e-9, name + ", the answer of boost");
  }

  const auto timings = bench::time_in_turn(
      report.quick() ? 5 : 25, {sum_over(times, ours), sum_over(times, gsl), sum_over(times, boost)});
  const auto ns = [&](size_t i) { return timings[i].median * 1e9 / static_cast<double>(times.size()); };
  report.row(name, "ns", bench::Better::less, ns(0), {{"gsl", ns(1)}, {"boost", ns(2)}},
             ascending ? 0.5 : 3.0);
}

}  // namespace

void measure_curves(bench::Report& report) {
  for (const size_t n : {100, 1000}) {
    measure(report, n, false);
    measure(report, n, true);
  }
}
