#include "tests/host/render/scene.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace {

using host::render::HostImage;
using scene::node;
using scene::read_plate;

using Matrix = std::array<double, 9>;

Matrix times(const Matrix& a, const Matrix& b) {
  Matrix c{};
  for (size_t i = 0; i < 9; ++i) {
    for (size_t k = 0; k < 3; ++k) c[i] += a[i / 3 * 3 + k] * b[k * 3 + i % 3];
  }
  return c;
}

std::array<double, 3> mapped(const Matrix& m, double x, double y) {
  const double w = m[6] * x + m[7] * y + m[8];
  return {(m[0] * x + m[1] * y + m[2]) / w, (m[3] * x + m[4] * y + m[5]) / w, w};
}

Matrix adjugate(const Matrix& m) {
  return {m[4] * m[8] - m[5] * m[7], m[2] * m[7] - m[1] * m[8], m[1] * m[5] - m[2] * m[4],
          m[5] * m[6] - m[3] * m[8], m[0] * m[8] - m[2] * m[6], m[2] * m[3] - m[0] * m[5],
          m[3] * m[7] - m[4] * m[6], m[1] * m[6] - m[0] * m[7], m[0] * m[4] - m[1] * m[3]};
}

double kernel(const std::string& filter, double x) {
  x = std::abs(x);
  if (filter == "bilinear") return std::max(0.0, 1 - x);
  if (x >= 2) return 0;
  return x < 1 ? 1 + x * x * (1.5 * x - 2.5) : 2 + x * (-4 + x * (2.5 - 0.5 * x));
}

// The value of a picture's pixel, wherever it is asked for.
using Shown = std::function<double(int64_t x, int64_t y)>;

double resampled(const Shown& shown, const Matrix& to_source, const std::string& filter, int64_t x,
                 int64_t y) {
  const auto [u, v, w] = mapped(to_source, static_cast<double>(x) + 0.5, static_cast<double>(y) + 0.5);
  double sum = 0;
  const auto column = static_cast<int64_t>(std::floor(u));
  const auto row = static_cast<int64_t>(std::floor(v));
  for (int64_t j = row - 2; w > 0 && j <= row + 2; ++j) {
    for (int64_t i = column - 2; i <= column + 2; ++i) {
      const double weight =
          kernel(filter, static_cast<double>(i) + 0.5 - u) * kernel(filter, static_cast<double>(j) + 0.5 - v);
      if (weight != 0) sum += weight * shown(i, j);
    }
  }
  return sum;
}

constexpr int width = 24;
constexpr int height = 16;

// A chain of random nodes, and what it shows by plain arithmetic in doubles.
class Chain {
 public:
  Chain(unsigned seed, std::string filter) : random_(seed), filter_(std::move(filter)) {}

  std::string nodes = read_plate("random.exr");
  std::string last = "p";

  // A step that keeps pixels whole: mirrored and cut, or laid into another format, or moved.
  void add_whole_step() {
    const std::string any_filter = flag() ? R"("filter": "cubic", )" : R"("filter": "bilinear", )";
    if (whole(0, 3) == 0) {
      const int dx = whole(-5, 5), dy = whole(-5, 5);
      add("transform",
          any_filter + "\"translate\": [" + std::to_string(dx) + ", " + std::to_string(dy) + "]");
      steps_.push_back([dx, dy](const Shown& before) {
        return [=](int64_t x, int64_t y) { return before(x - dx, y - dy); };
      });
      return;
    }
    const bool flip = flag(), flop = flag(), keep = flag(), same = flag();
    const int w = width_, h = height_;
    width_ = same ? w : whole(8, 30);
    height_ = same ? h : whole(8, 20);
    std::ostringstream knobs;
    knobs << std::boolalpha << any_filter << R"("resize": "none", "center": false, "size": [)" << width_
          << ", " << height_ << "], \"flip\": " << flip << ", \"flop\": " << flop
          << ", \"keep_outside\": " << keep;
    add("reformat", knobs.str());
    steps_.push_back([=, cut_w = width_, cut_h = height_](const Shown& before) {
      return [=](int64_t x, int64_t y) {
        const bool inside = x >= 0 && x < cut_w && y >= 0 && y < cut_h;
        return keep || inside ? before(flop ? w - 1 - x : x, flip ? h - 1 - y : y) : 0.0;
      };
    });
  }

  // Links that are folded into one resampling: translated, turned and scaled about a point, or pinned by four
  // corners in perspective.
  void add_links(int count) {
    Matrix forward = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    while (count-- > 0) forward = times(add_link(), forward);
    Matrix back = adjugate(forward);
    // The adjugate is the inverse but for a factor, whose sign tells front from back.
    const double sign = times(forward, back)[0] > 0 ? 1 : -1;
    for (double& each : back) each *= sign;
    steps_.push_back([back, filter = filter_](const Shown& before) {
      return [=](int64_t x, int64_t y) { return resampled(before, back, filter, x, y); };
    });
  }

  Shown shown(Shown plate) const {
    for (const auto& step : steps_) plate = step(plate);
    return plate;
  }

 private:
  Matrix add_link() {
    const bool pinned = flag();
    const double angle = number(-180, 180), scale = number(0.9, 1.15);
    const double x = number(-4, 4), y = number(-4, 4), cx = number(-5, 5), cy = number(-5, 5);
    const double turn = angle * std::acos(-1.0) / 180;
    const double c = scale * std::cos(turn), s = scale * std::sin(turn);
    const double px = cx + width_ / 2.0, py = cy + height_ / 2.0;
    Matrix matrix = {c, -s, px + x - c * px + s * py, s, c, py + y - s * px - c * py, 0, 0, 1};
    if (pinned) matrix = times({1, 0, 0, 0, 1, 0, number(-0.004, 0.004), number(-0.004, 0.004), 1}, matrix);
    std::ostringstream knobs;
    knobs.precision(17);
    knobs << "\"filter\": \"" << filter_ << "\", ";
    if (pinned) {
      knobs << "\"to\": [";
      for (const auto& [i, j] : {std::pair(0, 0), {width_, 0}, {width_, height_}, {0, height_}}) {
        const auto corner = mapped(matrix, i, j);
        knobs << (i + j ? ", " : "") << corner[0] << ", " << corner[1];
      }
      knobs << "]";
    } else {
      knobs << "\"translate\": [" << x << ", " << y << "], \"rotate\": " << angle << ", \"scale\": " << scale
            << ", \"center\": [" << cx << ", " << cy << "]";
    }
    add(pinned ? "corner_pin" : "transform", knobs.str());
    return matrix;
  }

  void add(const std::string& type, const std::string& knobs) {
    const std::string name = "t" + std::to_string(count_++);
    nodes += node(name, std::exchange(last, name), type, knobs);
  }
  int whole(int least, int most) {
    return std::uniform_int_distribution(least, most)(random_);
  }
  bool flag() {
    return whole(0, 1) == 1;
  }
  double number(double least, double most) {
    return std::uniform_real_distribution<double>(least, most)(random_);
  }

  std::mt19937 random_;
  std::string filter_;
  std::vector<std::function<Shown(const Shown&)>> steps_;
  int width_ = width, height_ = height, count_ = 0;
};

// Every pixel in and around the result of a random chain: that the window leaves nothing out, and that
// folding changes no pixel, is part of it.
TEST(TransformNodes, ChainsAgreeWithPlainArithmetic) {
  std::mt19937 random(11);
  scene::Plate plate = scene::noise(random, width - 7, height - 5);
  plate.x = 4;
  plate.y = 1;
  plate.full_width = width;
  plate.full_height = height;
  scene::write_plate(scene::folder() / "random.exr", plate);
  for (unsigned round = 0; round < 60; ++round) {
    Chain chain(round, round % 3 ? "cubic" : "bilinear");
    for (unsigned before = round % 4; before > 1; --before) chain.add_whole_step();
    chain.add_links(1 + static_cast<int>(round % 3));
    for (unsigned after = round % 5; after > 1; --after) chain.add_whole_step();
    scene::Scene shot(chain.nodes, width, height);
    const HostImage source = shot.image("p"), image = shot.image(chain.last);
    const auto plate_shown = [&](int64_t x, int64_t y) {
      return static_cast<double>(scene::pixel(source, x, y)[2]);
    };
    const Shown expected = chain.shown(plate_shown);
    double largest = 0;
    for (int64_t y = -30; y < 50; ++y) {
      for (int64_t x = -30; x < 60; ++x)
        largest =
            std::max(largest, std::abs(expected(x, y) - static_cast<double>(scene::pixel(image, x, y)[2])));
    }
    EXPECT_LT(largest, 2e-5) << "round " << round << ":\n" << chain.nodes;
  }
}

}  // namespace
