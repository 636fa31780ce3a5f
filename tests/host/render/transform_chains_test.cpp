#include "tests/host/render/transform_plates.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace {

using host::render::HostImage;
using scene::node;
using scene::read_plate;

// Plain double arithmetic for the random chains below.
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

double resampled(const HostImage& image, const Matrix& to_source, const std::string& filter, int64_t x,
                 int64_t y) {
  const auto [u, v, w] = mapped(to_source, static_cast<double>(x) + 0.5, static_cast<double>(y) + 0.5);
  double sum = 0;
  const auto column = static_cast<int64_t>(std::floor(u));
  const auto row = static_cast<int64_t>(std::floor(v));
  for (int64_t j = row - 3; w > 0 && j <= row + 3; ++j) {
    for (int64_t i = column - 3; i <= column + 3; ++i) {
      sum += kernel(filter, static_cast<double>(i) + 0.5 - u) *
             kernel(filter, static_cast<double>(j) + 0.5 - v) *
             static_cast<double>(scene::pixel(image, i, j)[2]);
    }
  }
  return sum;
}

constexpr int width = 24;
constexpr int height = 16;

// A random link as knobs and as a matrix: translated, turned and scaled about a point, or pinned by
// four corners in perspective.
class RandomLink {
 public:
  explicit RandomLink(std::mt19937& random) : random_(random) {
    const bool pinned = random() % 2 == 0;
    const double angle = number(-180, 180), scale = number(0.9, 1.15);
    const double x = number(-4, 4), y = number(-4, 4), cx = number(-5, 5), cy = number(-5, 5);
    const double turn = angle * std::acos(-1.0) / 180;
    const double c = scale * std::cos(turn), s = scale * std::sin(turn);
    const double px = cx + width / 2.0, py = cy + height / 2.0;
    matrix = {c, -s, px + x - c * px + s * py, s, c, py + y - s * px - c * py, 0, 0, 1};
    if (pinned) matrix = times({1, 0, 0, 0, 1, 0, number(-0.004, 0.004), number(-0.004, 0.004), 1}, matrix);
    std::ostringstream out;
    out.precision(17);
    if (pinned) {
      out << "\"to\": [";
      for (const auto& [i, j] : {std::pair(0, 0), {width, 0}, {width, height}, {0, height}}) {
        const auto corner = mapped(matrix, i, j);
        out << (i + j ? ", " : "") << corner[0] << ", " << corner[1];
      }
      out << "]";
    } else {
      out << "\"translate\": [" << x << ", " << y << "], \"rotate\": " << angle << ", \"scale\": " << scale
          << ", \"center\": [" << cx << ", " << cy << "]";
    }
    type = pinned ? "corner_pin" : "transform";
    knobs = out.str();
  }

  std::string type;
  std::string knobs;
  Matrix matrix{};

 private:
  double number(double least, double most) {
    return std::uniform_real_distribution<double>(least, most)(random_);
  }
  std::mt19937& random_;
};

// Every pixel in and around the result of a random chain, against the same in doubles: that the
// window leaves nothing out is part of it.
TEST(TransformNodes, ChainsAgreeWithPlainArithmetic) {
  std::mt19937 random(11);
  std::uniform_real_distribution<float> value(0, 1);
  scene::Plate plate;
  plate.width = width - 7;
  plate.height = height - 5;
  plate.x = 4;
  plate.y = 1;
  plate.full_width = width;
  plate.full_height = height;
  for (int i = 0; i < plate.width * plate.height * 4; ++i) plate.pixels.push_back(value(random));
  scene::write_plate(scene::folder() / "random.exr", plate);
  for (int round = 0; round < 30; ++round) {
    const std::string filter = round % 3 ? "cubic" : "bilinear";
    std::string nodes = read_plate("random.exr"), last = "p";
    Matrix forward = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    for (int i = 0; i <= round % 3; ++i) {
      const RandomLink link(random);
      const std::string name = "t" + std::to_string(i);
      nodes += node(name, last, link.type, link.knobs + R"(, "filter": ")" + filter + "\"");
      last = name;
      forward = times(link.matrix, forward);
    }
    scene::Scene shot(nodes, width, height);
    const HostImage source = shot.image("p");
    const HostImage image = shot.image(last);
    const Matrix back = adjugate(forward);
    // The adjugate is the inverse but for a factor, whose sign tells front from back.
    const double sign = times(forward, back)[0] > 0 ? 1 : -1;
    Matrix to_source = back;
    for (double& each : to_source) each *= sign;
    double largest = 0;
    for (int64_t y = -20; y < height + 20; ++y) {
      for (int64_t x = -20; x < width + 20; ++x) {
        const double expected = resampled(source, to_source, filter, x, y);
        largest = std::max(largest, std::abs(expected - static_cast<double>(scene::pixel(image, x, y)[2])));
      }
    }
    EXPECT_LT(largest, 2e-5) << "round " << round << ":\n" << nodes;
  }
}

// A step that keeps pixels whole: mirrored and cut, or laid into another format, or moved.
std::string whole_step(std::mt19937& random) {
  const auto from = [&](int least, int most) { return std::uniform_int_distribution(least, most)(random); };
  const auto flag = [&](const char* name) { return std::string(name) + (from(0, 1) ? "true" : "false"); };
  std::ostringstream knobs;
  knobs << R"("filter": ")" << (from(0, 1) ? "cubic" : "bilinear") << "\", ";
  if (from(0, 3) == 0) {
    knobs << R"("translate": [)" << from(-5, 5) << ", " << from(-5, 5) << "]";
    return R"("type": "transform", "knobs": {)" + knobs.str() + "}";
  }
  knobs << R"("resize": "none", "center": false, "size": [)";
  const bool same = from(0, 1);
  knobs << (same ? width : from(8, 30)) << ", " << (same ? height : from(8, 20)) << "], ";
  knobs << flag("\"flip\": ") << ", " << flag("\"flop\": ") << ", " << flag("\"keep_outside\": ");
  return R"("type": "reformat", "knobs": {)" + knobs.str() + "}";
}

// Only one step resamples, so that folding must not change a pixel: each chain beside the same with
// every step drawn, by a grade that doubles it.
TEST(TransformNodes, FoldedChainsEqualUnfoldedOnes) {
  std::mt19937 random(23);
  std::uniform_real_distribution<double> part(-6, 6);
  scene::Plate plate;
  plate.width = width;
  plate.height = height;
  for (int i = 0; i < width * height * 4; ++i)
    plate.pixels.push_back(i % 4 == 3 ? 1 : 0.5F + static_cast<float>(random() % 1000) / 1000);
  scene::write_plate(scene::folder() / "folded.exr", plate);
  for (int round = 0; round < 60; ++round) {
    const int count = 2 + round % 4;
    const int resampling = static_cast<int>(random() % static_cast<unsigned>(count));
    std::string folded = read_plate("folded.exr"), unfolded = folded, last = "p";
    for (int i = 0; i < count; ++i) {
      std::string step = whole_step(random);
      if (i == resampling) {
        std::ostringstream knobs;
        knobs << R"("type": "transform", "knobs": {"filter": ")" << (round % 3 ? "cubic" : "bilinear")
              << R"(", "translate": [)" << part(random) << ", " << part(random) << "]";
        if (random() % 2) knobs << R"(, "rotate": )" << 10 * part(random) << R"(, "scale": 1.2)";
        step = knobs.str() + "}";
      }
      const std::string name = "t" + std::to_string(i);
      const auto joined = [&](std::string input) {
        return R"(, {"name": ")" + name + R"(", "inputs": ")" + input.append("\", ").append(step) + "}";
      };
      folded += joined(i == 0 ? "p" : "t" + std::to_string(i - 1));
      unfolded += joined(last);
      unfolded += node("d" + name, name, "grade", R"("multiply": 2, "unpremultiply": false)");
      last = "d" + name;
    }
    scene::Scene once(folded, width, height), stepwise(unfolded, width, height);
    const HostImage image = once.image("t" + std::to_string(count - 1));
    const HostImage expected = stepwise.image(last);
    double largest = 0;
    for (int64_t y = -30; y < 50; ++y) {
      for (int64_t x = -30; x < 60; ++x) {
        const double wanted = std::ldexp(static_cast<double>(scene::pixel(expected, x, y)[2]), -count);
        largest = std::max(largest, std::abs(wanted - static_cast<double>(scene::pixel(image, x, y)[2])));
      }
    }
    EXPECT_LT(largest, 2e-5) << "round " << round << ":\n" << folded;
  }
}

}  // namespace
