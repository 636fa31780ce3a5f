#include "tests/host/render/scene.h"

#include <cmath>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using host::Box;
using host::render::HostImage;
using Rgba = std::array<float, 4>;

// The plate of most tests: pixel (x, y), y up, holds 1 + x + 10 y in every channel.
void write_numbered(const std::string& name, int width, int height) {
  scene::Plate plate;
  plate.width = width;
  plate.height = height;
  for (int row = height; row-- > 0;) {
    for (int x = 0; x < width; ++x)
      plate.pixels.insert(plate.pixels.end(), 4, static_cast<float>(1 + x + 10 * row));
  }
  scene::write_plate(scene::folder() / name, plate);
}

std::string read_plate(const std::string& name) {
  return R"({"name": "p", "type": "read", "knobs": {"file": ")" + name + R"("}})";
}

std::string node(const std::string& name, const std::string& input, const std::string& type,
                 const std::string& knobs) {
  return R"(, {"name": ")" + name + R"(", "inputs": ")" + input + R"(", "type": ")" + type +
         R"(", "knobs": {)" + knobs + "}}";
}

struct Probe {
  int64_t x;
  int64_t y;
  double expected;
};

struct Case {
  const char* what;
  const char* type;
  const char* knobs;
  int width;  // of the resulting format
  int height;
  Box window;
  std::vector<Probe> probes;
};

// Of a plate of 4 x 2 pixels,  11 12 13 14
//                               1  2  3  4
const std::vector<Case>& cases() {
  static const std::vector<Case> all = {
      {"by whole pixels",
       "transform",
       R"("translate": [3, -2])",
       4,
       2,
       {3, -2, 7, 0},
       {{3, -2, 1}, {6, -1, 14}}},
      {"half a turn", "transform", R"("rotate": 180)", 4, 2, {0, 0, 4, 2}, {{0, 0, 14}, {3, 1, 1}}},
      {"a quarter turn about a corner",
       "transform",
       R"("rotate": 90, "center": [-2, -1])",
       4,
       2,
       {-2, 0, 0, 4},
       {{-1, 0, 1}, {-2, 0, 11}, {-1, 3, 4}}},
      {"mirrored", "transform", R"("scale": [-1, 1])", 4, 2, {0, 0, 4, 2}, {{0, 0, 4}, {3, 1, 11}}},
      {"undone",
       "transform",
       R"("translate": [3, -2], "rotate": 180, "invert": true)",
       4,
       2,
       {3, -2, 7, 0},
       {{3, -2, 14}}},
      {"twice as large",
       "transform",
       R"("scale": 2, "filter": "nearest", "center": [-2, -1])",
       4,
       2,
       {0, 0, 8, 4},
       {{0, 0, 1}, {1, 1, 1}, {7, 3, 14}}},
      // Half way between two pixels: their mean, and half of what is next to nothing.
      {"by half a pixel",
       "transform",
       R"("translate": [0.5, 0], "filter": "bilinear")",
       4,
       2,
       {-2, -2, 7, 4},
       {{1, 0, 1.5}, {0, 0, 0.5}, {4, 1, 7}, {5, 1, 0}}},
      // Catmull-Rom: 9/16 of both neighbours, -1/16 of the next.
      {"sharp by half a pixel",
       "transform",
       R"("translate": [0.5, 0])",
       4,
       2,
       {-3, -3, 8, 5},
       {{2, 0, (9 * (2 + 3) - 1 - 4) / 16.0}, {0, 0, (9 * 1 - 2) / 16.0}, {-1, 0, -1 / 16.0}}},
      {"a pixel for four",
       "transform",
       R"("scale": 0.5, "center": [-2, -1])",
       4,
       2,
       {-2, -2, 4, 3},
       {{0, 0, (1 + 2 + 11 + 12) / 4.0}, {1, 0, (3 + 4 + 13 + 14) / 4.0}, {2, 0, 0}}},
      {"no inverse", "transform", R"("scale": [0, 1])", 4, 2, {}, {{0, 0, 0}}},
      {"into a box",
       "reformat",
       R"("to": "box", "size": [8, 0], "filter": "nearest")",
       8,
       4,
       {0, 0, 8, 4},
       {{0, 0, 1}, {1, 1, 1}, {6, 2, 14}}},
      {"fit",
       "reformat",
       R"("size": [8, 8], "filter": "nearest")",
       8,
       8,
       {0, 2, 8, 6},
       {{0, 2, 1}, {7, 5, 14}}},
      {"fit in the corner",
       "reformat",
       R"("size": [8, 8], "filter": "nearest", "center": false)",
       8,
       8,
       {0, 0, 8, 4},
       {{0, 0, 1}, {7, 3, 14}}},
      {"fill",
       "reformat",
       R"("size": [8, 8], "filter": "nearest", "resize": "fill")",
       8,
       8,
       {0, 0, 8, 8},
       {{0, 0, 2}, {7, 7, 13}}},
      {"fill and keep",
       "reformat",
       R"("size": [8, 8], "filter": "nearest", "resize": "fill", "keep_outside": true)",
       8,
       8,
       {-4, 0, 12, 8},
       {{-1, 0, 1}, {11, 7, 14}}},
      {"distort",
       "reformat",
       R"("size": [8, 8], "filter": "nearest", "resize": "distort")",
       8,
       8,
       {0, 0, 8, 8},
       {{0, 0, 1}, {7, 3, 4}, {7, 4, 14}}},
      {"by height",
       "reformat",
       R"("size": [4, 4], "filter": "nearest", "resize": "height")",
       4,
       4,
       {0, 0, 4, 4},
       {{0, 0, 2}, {3, 3, 13}}},
      {"by width",
       "reformat",
       R"("size": [8, 2], "filter": "nearest", "resize": "width")",
       8,
       2,
       {0, 0, 8, 2},
       {{0, 0, 1}, {7, 1, 14}}},
      {"cut", "reformat", R"("size": [2, 8], "resize": "none")", 2, 8, {0, 3, 2, 5}, {{0, 3, 2}, {1, 4, 13}}},
      {"upside down",
       "reformat",
       R"("to": "scale", "flip": true)",
       4,
       2,
       {0, 0, 4, 2},
       {{0, 0, 11}, {3, 1, 4}}},
      {"left to right",
       "reformat",
       R"("to": "scale", "flop": true)",
       4,
       2,
       {0, 0, 4, 2},
       {{0, 0, 4}, {3, 1, 11}}},
      {"turned",
       "reformat",
       R"("to": "scale", "turn": true)",
       2,
       4,
       {0, 0, 2, 4},
       {{1, 0, 1}, {0, 0, 11}, {1, 3, 4}}},
      // Pixels twice as wide as they are high show the same on half the columns.
      {"wide pixels",
       "reformat",
       R"("size": [2, 2], "pixel_aspect": 2, "filter": "nearest")",
       2,
       2,
       {0, 0, 2, 2},
       {{0, 0, 2}, {1, 1, 14}}},
      {"pinned by one point",
       "corner_pin",
       R"("from": [1, 1], "to": [2, 4])",
       4,
       2,
       {1, 3, 5, 5},
       {{1, 3, 1}}},
      {"pinned by two",
       "corner_pin",
       R"("from": [0, 0, 4, 0], "to": [0, 0, 0, 4])",
       4,
       2,
       {-2, 0, 0, 4},
       {{-1, 0, 1}, {-2, 3, 14}}},
      {"pinned by three",
       "corner_pin",
       R"("to": [0, 0, 4, 0, 4, 4], "filter": "nearest")",
       4,
       2,
       {0, 0, 4, 4},
       {{0, 1, 1}, {3, 2, 14}}},
      {"pinned back",
       "corner_pin",
       R"("to": [1, 0, 5, 0, 5, 2, 1, 2], "invert": true)",
       4,
       2,
       {-1, 0, 3, 2},
       {{-1, 0, 1}, {2, 1, 14}}},
      {"cropped", "crop", R"("box": [1, -5, 3, 1])", 4, 2, {1, 0, 3, 1}, {{1, 0, 2}, {2, 0, 3}, {0, 0, 0}}},
      {"cropped to its own format",
       "crop",
       R"("box": [1, 1, 4, 3], "reformat": true)",
       3,
       2,
       {0, 0, 3, 1},
       {{0, 0, 12}, {2, 0, 14}}},
      {"cropped between pixels",
       "crop",
       R"("box": [0.25, 0, 2.75, 1.5])",
       4,
       2,
       {0, 0, 3, 1},
       {{0, 0, 0.75}, {1, 0, 2}, {2, 0, 2.25}}},
      {"cropped softly",
       "crop",
       R"("box": [0, 0, 4, 2], "soft": 2)",
       4,
       2,
       {0, 0, 4, 2},
       {{0, 0, 1 / 16.0}, {1, 0, 2 * 3 / 16.0}, {3, 1, 14 / 16.0}}},
      {"cropped to nothing", "crop", R"("box": [5, 5, 9, 9])", 4, 2, {}, {{0, 0, 0}}},
  };
  return all;
}

TEST(TransformNodes, PutPixelsWhereTheirKnobsSay) {
  write_numbered("numbered.exr", 4, 2);
  for (const Case& each : cases()) {
    scene::Scene shot(read_plate("numbered.exr") + node("t", "p", each.type, each.knobs), 4, 2);
    const HostImage image = shot.image("t");
    EXPECT_EQ(image.extent.format.width, each.width) << each.what;
    EXPECT_EQ(image.extent.format.height, each.height) << each.what;
    EXPECT_EQ(image.extent.window, each.window) << each.what;
    for (const Probe& probe : each.probes) {
      EXPECT_NEAR(scene::pixel(image, probe.x, probe.y)[1], probe.expected, 1e-5)
          << each.what << ": pixel " << probe.x << ", " << probe.y;
    }
  }
}

int64_t draws_for(scene::Scene& shot, const std::string& name) {
  const int64_t before = shot.renderer().stats().draws;
  shot.image(name);
  return shot.renderer().stats().draws - before;
}

// Resampled twice, the picture would be soft.
TEST(TransformNodes, FoldIntoOneResampling) {
  write_numbered("fold.exr", 6, 6);
  scene::Scene shot(
      read_plate("fold.exr") + node("half", "p", "transform", R"("translate": [0.5, 0.25])") +
          node("whole", "half", "transform", R"("translate": [0.5, 0.75])") +
          node("turned", "whole", "transform", R"("rotate": 30)") +
          node("pinned", "turned", "corner_pin", R"("to": [0, 0, 7, 1, 6, 6, 0, 5])") +
          node("back", "pinned", "corner_pin", R"("to": [0, 0, 7, 1, 6, 6, 0, 5], "invert": true)") +
          node("upright", "back", "transform", R"("rotate": -30)"),
      6, 6);
  EXPECT_EQ(draws_for(shot, "whole"), 0);
  EXPECT_EQ(draws_for(shot, "pinned"), 1);
  const HostImage plate = shot.image("p");
  for (const char* name : {"whole", "upright"}) {
    const HostImage image = shot.image(name);
    EXPECT_EQ(image.extent.window, (Box{1, 1, 7, 7})) << name;
    EXPECT_EQ(image.rgba, plate.rgba) << name;
  }
}

// A clip is an upright box: the corners that it would regain by being turned must stay cut off.
TEST(TransformNodes, DoNotFoldWhatWouldShowAgain) {
  write_numbered("large.exr", 16, 16);
  scene::Scene shot(read_plate("large.exr") +
                        node("cut", "p", "reformat", R"("size": [4, 4], "resize": "none")") +
                        node("wide", "cut", "reformat", R"("size": [16, 16], "resize": "none")") +
                        node("turned", "wide", "transform", R"("rotate": 45, "filter": "nearest")"),
                    16, 16);
  const HostImage image = shot.image("turned");
  // The middle of the plate, and a corner of the box around the turned square of half diagonal 2.83.
  EXPECT_GT(scene::pixel(image, 8, 8)[0], 0);
  EXPECT_EQ(scene::pixel(image, 9, 9)[0], 0);
  EXPECT_EQ(scene::pixel(image, 6, 9)[0], 0);
}

TEST(TransformNodes, BlurByTheirMotion) {
  scene::write_plate(scene::folder() / "white.exr",
                     {20, 2, {"R", "G", "B", "A"}, std::vector<float>(160, 1)});
  const std::string keys = R"("translate": [{"keys": [[0, 0], [10, 100]]}, 0], "motion_blur": 1)";
  scene::Scene shot(read_plate("white.exr") +
                        node("t", "p", "transform", keys + R"(, "shutter": 1, "shutter_position": "start")") +
                        node("still", "p", "transform", R"("translate": [3, 0], "motion_blur": 1)") +
                        node("before", "t", "transform", R"("translate": [0.5, 0])") +
                        node("after", "before", "transform", R"("translate": [-0.5, 0])"),
                    20, 2);
  // Ten pixels a frame, a sample each and one more: at frame 2 they lie at 20, 21, ..., 30.
  for (const char* name : {"t", "after"}) {
    const HostImage image = shot.image(name, 2);
    for (int64_t x = 15; x < 55; ++x) {
      const auto inside = static_cast<double>(std::clamp<int64_t>(std::min(x - 19, 50 - x), 0, 11));
      EXPECT_NEAR(scene::pixel(image, x, 1)[3], inside / 11, 1e-6) << name << " " << x;
    }
  }
  EXPECT_EQ(shot.image("still", 2).extent.window, (Box{3, 0, 23, 2}));
}

// A shutter open from frame 3 to 7 with a sample at each: the mean of what stands at those frames.
TEST(TransformNodes, BlurIsTheMeanOfItsSamples) {
  write_numbered("moving.exr", 24, 16);
  const std::string moves =
      R"("rotate": {"keys": [[0, 0], [10, 20]]}, "translate": [0, {"keys": [[0, 0, "smooth"], [10, 3]]}])";
  // The furthest corner travels some 3.5 pixels, so that 1.05 samples a pixel are 5.
  scene::Scene shot(read_plate("moving.exr") + node("s", "p", "transform", moves) +
                        node("b", "p", "transform",
                             moves + R"(, "motion_blur": 1.05, "shutter": 4, "shutter_position": "start")"),
                    24, 16);
  // Values up to 174, and float positions right to some 5e-6 of a pixel.
  const HostImage blurred = shot.image("b", 3);
  std::vector<HostImage> stills;
  for (int64_t frame = 3; frame <= 7; ++frame) stills.push_back(shot.image("s", frame));
  for (int64_t y = -12; y < 28; ++y) {
    for (int64_t x = -12; x < 36; ++x) {
      double sum = 0;
      for (const HostImage& still : stills) sum += static_cast<double>(scene::pixel(still, x, y)[0]);
      ASSERT_NEAR(scene::pixel(blurred, x, y)[0], sum / 5, 1e-3) << x << ", " << y;
    }
  }
}

TEST(CornerPin, RefusesPointsThatDoNotPair) {
  write_numbered("numbered.exr", 4, 2);
  const char* const refused[][2] = {
      {R"("to": [1, 2, 3])", R"(knob "to": expected pairs of x and y, found 3 numbers)"},
      {R"("to": [1, 2], "from": [1, 2, 3, 4])",
       R"(knob "from": expected as many points as in "to", 1, found 2)"}};
  for (const auto& [knobs, message] : refused) {
    scene::Scene shot(read_plate("numbered.exr") + node("t", "p", "corner_pin", knobs), 4, 2);
    try {
      shot.image("t");
      ADD_FAILURE() << knobs;
    } catch (const host::render::FrameError& error) {
      EXPECT_NE(std::string(error.what()).find(message), std::string::npos) << error.what();
    }
  }
}

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

}  // namespace
