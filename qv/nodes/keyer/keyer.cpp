#include <qv/nodes/keyer/keyer.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace qv::nodes::keyer {

namespace {

constexpr size_t red = 0;
constexpr size_t green = 1;
constexpr size_t blue = 2;

size_t dominant_channel(const std::array<double, 3>& colour) {
  const auto [r, g, b] = colour;
  const bool black = !(r > 0 || g > 0 || b > 0);
  if (black || (g >= r && g >= b)) return green;
  return b >= r ? blue : red;
}

}  // namespace

int fill_levels(double size, int64_t width, int64_t height) {
  if (std::isnan(size)) return 1;
  const auto extent = static_cast<double>(std::max(width, height));
  double level_size = std::max(size, 0.5);
  int levels = 1;
  while (extent > level_size && levels < 10) {
    level_size *= 2;
    ++levels;
  }
  return levels;
}

std::array<double, 4> keyer_range(const std::array<double, 4>& range) {
  auto [low0, high0, low1, high1] = range;
  if (low0 > high0) std::swap(low0, high0);
  if (low1 > high1) std::swap(low1, high1);
  // Only a strictly greater high0 replaces: a NaN bound stays where it is.
  if (high0 > low1) low1 = high0;
  if (high0 > high1) high1 = high0;
  return {low0, high0, low1, high1};
}

void screen_channels(const std::array<double, 3>& colour, double balance, std::array<double, 3>& selector,
                     std::array<double, 3>& weights) {
  const size_t dominant = dominant_channel(colour);
  const size_t first = dominant == red ? green : red;
  const size_t second = dominant == blue ? green : blue;
  selector = {};
  selector[dominant] = 1;
  weights = {};
  weights[first] = balance;
  weights[second] = 1 - balance;
}

}  // namespace qv::nodes::keyer
