#include "tests/host/render/placed_cases.h"
#include "tests/host/render/scene.h"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <tuple>
#include <utility>

#include <ImathMatrix.h>
#include <ImathVec.h>
#include <gtest/gtest.h>

namespace {

using Imath::M33d;
using Imath::V2d;
using scene::HostImage;
using scene::node;
using scene::read_plate;

// What a node makes of the plate    11 12 13 14
//                                    1  2  3  4
// with some knobs: the size of the format, the window, and pixels as x, y and value. The bilinear filter
// takes the mean half way between two pixels; Catmull-Rom takes 9/16 of both and -1/16 of the next two.
// Pixels twice as wide as they are high show the same on half the columns.
constexpr const char* placed = R"(
undone                        | numbered | transform  | "translate": [3, -2], "rotate": 180, "invert": true | 4 2 | 3 -2 7 0 | 3 -2 14
by half a pixel               | numbered | transform  | "translate": [0.5, 0], "filter": "bilinear" | 4 2 | -2 -2 7 4 | 1 0 1.5, 0 0 0.5, 4 1 7, 5 1 0
sharp by half a pixel         | numbered | transform  | "translate": [0.5, 0] | 4 2 | -3 -3 8 5 | 2 0 2.5, 0 0 0.4375, -1 0 -0.0625
no inverse                    | numbered | transform  | "scale": [0, 1] | 4 2 | 0 0 0 0 | 0 0 0
into a box                    | numbered | reformat   | "to": "box", "size": [8, 0], "filter": "nearest" | 8 4 | 0 0 8 4 | 0 0 1, 1 1 1, 6 2 14
fit                           | numbered | reformat   | "size": [8, 8], "filter": "nearest" | 8 8 | 0 2 8 6 | 0 2 1, 7 5 14
fill                          | numbered | reformat   | "size": [8, 8], "filter": "nearest", "resize": "fill" | 8 8 | 0 0 8 8 | 0 0 2, 7 7 13
fill and keep                 | numbered | reformat   | "size": [8, 8], "filter": "nearest", "resize": "fill", "keep_outside": true | 8 8 | -4 0 12 8 | -1 0 1, 11 7 14
distort                       | numbered | reformat   | "size": [8, 8], "filter": "nearest", "resize": "distort" | 8 8 | 0 0 8 8 | 0 0 1, 7 3 4, 7 4 14
by height                     | numbered | reformat   | "size": [4, 4], "filter": "nearest", "resize": "height" | 4 4 | 0 0 4 4 | 0 0 2, 3 3 13
by width                      | numbered | reformat   | "size": [8, 2], "filter": "nearest", "resize": "width" | 8 2 | 0 0 8 2 | 0 0 1, 7 1 14
mirrored                      | numbered | transform  | "scale": [-1, 1] | 4 2 | 0 0 4 2 | 0 0 4, 3 1 11
a pixel for four              | numbered | transform  | "scale": 0.5, "center": [-2, -1] | 4 2 | -2 -2 4 3 | 0 0 6.5, 1 0 8.5, 2 0 0
fit in the corner             | numbered | reformat   | "size": [8, 8], "filter": "nearest", "center": false | 8 8 | 0 0 8 4 | 0 0 1, 7 3 14
pinned by one point           | numbered | corner_pin | "from": [1, 1], "to": [2, 4] | 4 2 | 1 3 5 5 | 1 3 1
pinned by two                 | numbered | corner_pin | "from": [0, 0, 4, 0], "to": [0, 0, 0, 4] | 4 2 | -2 0 0 4 | -1 0 1, -2 3 14
cut                           | numbered | reformat   | "size": [2, 8], "resize": "none" | 2 8 | 0 3 2 5 | 0 3 2, 1 4 13
turned                        | numbered | reformat   | "to": "scale", "turn": true | 2 4 | 0 0 2 4 | 1 0 1, 0 0 11, 1 3 4
wide pixels                   | numbered | reformat   | "size": [2, 2], "pixel_aspect": 2, "filter": "nearest" | 2 2 | 0 0 2 2 | 0 0 2, 1 1 14
pinned by three               | numbered | corner_pin | "to": [0, 0, 4, 0, 4, 4], "filter": "nearest" | 4 2 | 0 0 4 4 | 0 1 1, 3 2 14
pinned back                   | numbered | corner_pin | "to": [1, 0, 5, 0, 5, 2, 1, 2], "invert": true | 4 2 | -1 0 3 2 | -1 0 1, 2 1 14
cropped                       | numbered | crop       | "box": [1, -5, 3, 1] | 4 2 | 1 0 3 1 | 1 0 2, 2 0 3, 0 0 0
cropped to its own format     | numbered | crop       | "box": [1, 1, 4, 3], "reformat": true | 3 2 | 0 0 3 1 | 0 0 12, 2 0 14
cropped between pixels        | numbered | crop       | "box": [0.25, 0, 2.75, 1.5] | 4 2 | 0 0 3 1 | 0 0 0.75, 1 0 2, 2 0 2.25
cropped softly                | numbered | crop       | "box": [0, 0, 4, 2], "soft": 2 | 4 2 | 0 0 4 2 | 0 0 0.0625, 1 0 0.375, 3 1 0.875
)";

TEST(TransformNodes, PutPixelsWhereTheirKnobsSay) {
  scene::write_numbered("numbered.exr", 4, 2);
  scene::check_placed_cases(placed, 4, 2);
}

double kernel(const std::string& filter, double x) {
  x = std::abs(x);
  if (filter == "bilinear") return std::max(0.0, 1 - x);
  if (x >= 2) return 0;
  return x < 1 ? 1 + x * x * (1.5 * x - 2.5) : 2 + x * (-4 + x * (2.5 - 0.5 * x));
}

// The value of a picture's pixel, wherever it is asked for.
using Shown = std::function<double(int64_t x, int64_t y)>;

double resampled(const Shown& shown, const M33d& to_source, const std::string& filter, int64_t x, int64_t y) {
  const V2d middle(static_cast<double>(x) + 0.5, static_cast<double>(y) + 0.5), from = middle * to_source;
  const double u = from.x, v = from.y;
  const double w = middle.x * to_source[0][2] + middle.y * to_source[1][2] + to_source[2][2];
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
    M33d forward;
    while (count-- > 0) forward *= add_link();
    steps_.push_back([back = forward.inverse(), filter = filter_](const Shown& before) {
      return [=](int64_t x, int64_t y) { return resampled(before, back, filter, x, y); };
    });
  }

  Shown shown(Shown plate) const {
    for (const auto& step : steps_) plate = step(plate);
    return plate;
  }

 private:
  M33d add_link() {
    const bool pinned = flag();
    const double angle = number(-180, 180), scale = number(0.9, 1.15);
    const V2d by(number(-4, 4), number(-4, 4)), center(number(-5, 5), number(-5, 5));
    const V2d pivot = center + V2d(width_, height_) / 2;
    M33d matrix = M33d().setTranslation(-pivot) * M33d().setRotation(angle * std::acos(-1.0) / 180) *
                  M33d().setScale(scale) * M33d().setTranslation(pivot + by);
    if (pinned) matrix *= M33d(1, 0, number(-0.004, 0.004), 0, 1, number(-0.004, 0.004), 0, 0, 1);
    std::ostringstream knobs;
    knobs.precision(17);
    knobs << "\"filter\": \"" << filter_ << "\", ";
    if (pinned) {
      knobs << "\"to\": [";
      for (const V2d& from : {V2d(0, 0), V2d(width_, 0), V2d(width_, height_), V2d(0, height_)}) {
        const V2d corner = from * matrix;
        knobs << (from == V2d(0, 0) ? "" : ", ") << corner.x << ", " << corner.y;
      }
      knobs << "]";
    } else {
      knobs << "\"translate\": [" << by.x << ", " << by.y << "], \"rotate\": " << angle
            << ", \"scale\": " << scale << ", \"center\": [" << center.x << ", " << center.y << "]";
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
// folding changes no pixel, is part of it. Links alone are one draw, however many.
TEST(TransformNodes, ChainsAgreeWithPlainArithmetic) {
  std::mt19937 random(11);
  scene::Plate plate = scene::noise(random, width - 7, height - 5);
  std::tie(plate.x, plate.y, plate.full_width, plate.full_height) = std::tuple(4, 1, width, height);
  scene::write_plate("random.exr", plate);
  for (unsigned round = 0; round < 60; ++round) {
    Chain chain(round, round % 3 ? "cubic" : "bilinear");
    for (unsigned before = round % 4; before > 1; --before) chain.add_whole_step();
    chain.add_links(1 + static_cast<int>(round % 3));
    for (unsigned after = round % 5; after > 1; --after) chain.add_whole_step();
    scene::Scene shot(chain.nodes, width, height);
    const HostImage source = shot.image("p"), image = shot.image(chain.last);
    EXPECT_TRUE(round % 4 > 1 || round % 5 > 1 || shot.renderer().stats().draws == 1) << round;
    const auto shown_at = [](const HostImage& of, int64_t x, int64_t y) {
      return static_cast<double>(scene::pixel(of, x, y)[2]);
    };
    const Shown expected = chain.shown([&](int64_t x, int64_t y) { return shown_at(source, x, y); });
    double largest = 0;
    for (int64_t y = -30; y < 50; ++y)
      for (int64_t x = -30; x < 60; ++x)
        largest = std::max(largest, std::abs(expected(x, y) - shown_at(image, x, y)));
    EXPECT_LT(largest, 2e-5) << "round " << round << ":\n" << chain.nodes;
  }
}

// A shutter open from frame 3 to 7 with a sample at each: the mean of what stands at those frames, whatever
// other moves it is folded with. What moves by whole pixels takes no draw.
TEST(MotionBlur, IsTheMeanOfItsSamples) {
  scene::write_numbered("moving.exr", 24, 16);
  const std::string moves =
      R"("rotate": {"keys": [[0, 0], [10, 20]]}, "translate": [0, {"keys": [[0, 0, "smooth"], [10, 3]]}])";
  // The furthest corner travels some 3.5 pixels, so that 1.05 samples a pixel are 5.
  scene::Scene shot(read_plate("moving.exr") + node("s", "p", "transform", moves) +
                        node("b", "p", "transform",
                             moves + R"(, "motion_blur": 1.05, "shutter": 4, "shutter_position": "start")") +
                        node("before", "b", "transform", R"("translate": [0.5, 0])") +
                        node("after", "before", "transform", R"("translate": [-0.5, 0])") +
                        node("still", "p", "transform", R"("translate": [3, 0], "motion_blur": 1)"),
                    24, 16);
  EXPECT_EQ(shot.image("still").extent.window, (host::Box{3, 0, 27, 16}));
  EXPECT_EQ(shot.renderer().stats().draws, 0);
  std::vector<HostImage> stills;
  for (int64_t frame = 3; frame <= 7; ++frame) stills.push_back(shot.image("s", frame));
  for (const char* name : {"b", "after"}) {
    const HostImage blurred = shot.image(name, 3);
    for (int64_t y = -12; y < 28; ++y) {
      for (int64_t x = -12; x < 36; ++x) {
        double sum = 0;
        for (const HostImage& still : stills) sum += static_cast<double>(scene::pixel(still, x, y)[0]);
        // Values up to 174, and float positions right to some 5e-6 of a pixel.
        ASSERT_NEAR(scene::pixel(blurred, x, y)[0], sum / 5, 1e-3) << name << ": " << x << ", " << y;
      }
    }
  }
}

}  // namespace
