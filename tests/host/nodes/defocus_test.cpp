#include "tests/host/render/scene.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Pixel = std::array<double, 4>;
using Picture = std::vector<Pixel>;  // rows of `width`

constexpr int levels = 5;

struct Scenery {
  int width, height;
  Picture image;
  std::vector<double> depth;

  size_t at(int x, int y) const {
    return static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x);
  }
};

// Hills far away, a sharp post with a soft left edge of alpha, and a branch near by; noise in both.
Scenery scenery(int width, int height) {
  std::mt19937 random(21);
  std::uniform_real_distribution<double> value(0, 1);
  Scenery made{width, height, {}, {}};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const bool post = x >= width / 3 && x < width / 2;
      const bool branch = y >= height / 2 && y < 3 * height / 4;
      const double alpha = x < 4 ? x / 4.0 : 1;
      const double grey = branch ? 0.2 : post ? 0.9 : 0.5 + 0.3 * std::sin(x * 0.9) * std::cos(y * 0.7);
      made.image.push_back({alpha * grey, alpha * value(random), alpha * (1 - grey), alpha});
      made.depth.push_back(branch ? 1 : post ? 2 : 2.5 + 6 * value(random));
    }
  }
  return made;
}

// The level of a depth when 2 is sharp, as a lens draws: negative before it.
double level_of(double depth) {
  const double size = std::min(std::abs(depth - 2) / depth, 1.0);
  return (depth < 2 ? -1 : 1) * std::sqrt(size) * levels;
}

// The mean over a disc, a row's end pixels in part; `smallest` radius 0.5. Beyond the picture it goes on
// with `outside`, or with its edge pixels.
template <class Read>
Pixel disc_mean(double radius, Read&& read) {
  Pixel sum{};
  double weights = 0;
  for (int dy = 1 - static_cast<int>(std::ceil(radius)); dy < std::ceil(radius); ++dy) {
    const double half = radius * std::sqrt(1 - dy / radius * (dy / radius));
    const int most = static_cast<int>(std::ceil(half + 0.5));
    for (int dx = -most; dx <= most; ++dx) {
      const double part = std::min(dx + 0.5, half) - std::max(dx - 0.5, -half);
      if (part <= 0) continue;
      const Pixel pixel = read(dx, dy);
      for (size_t c = 0; c < 4; ++c) sum[c] += part * pixel[c];
      weights += part;
    }
  }
  for (double& each : sum) each /= weights;
  return sum;
}

// One layer at one pixel: what lies at `level` around it, blurred by that level's disc.
Pixel layer_at(const Scenery& given, double largest, int level, bool nothing, int x, int y) {
  const int size = nothing ? levels : std::abs(level);
  const double radius = largest * size * size / (levels * levels);
  const auto read = [&](int dx, int dy) {
    const int u = x + dx, v = y + dy;
    const bool inside = u >= 0 && u < given.width && v >= 0 && v < given.height;
    const Pixel pixel = inside ? given.image[given.at(u, v)] : Pixel{};
    if (nothing) return Pixel{1 - pixel[3], 0, 0, 0};
    const double weight =
        inside ? std::max(0.0, 1 - std::abs(level_of(given.depth[given.at(u, v)]) - level)) : 0.0;
    return Pixel{weight * pixel[0], weight * pixel[1], weight * pixel[2], weight * pixel[3]};
  };
  return radius < 0.5 ? read(0, 0) : disc_mean(radius, read);
}

// Layers of one side, nearest first, each behind those before it, scaled up to all that there was.
Pixel side_at(const std::vector<Pixel>& layers) {
  Pixel seen{};
  double all = 0;
  for (const Pixel& each : layers) {
    const double open = 1 - std::min(seen[3], 1.0);
    for (size_t c = 0; c < 4; ++c) seen[c] += each[c] * open;
    all += each[3];
  }
  if (seen[3] <= 0) return seen;
  const double scale = std::min(all, 1.0) / seen[3];
  for (double& each : seen) each *= scale;
  return seen;
}

Pixel defocused(const Scenery& given, double largest, int x, int y) {
  std::vector<Pixel> back, front;
  for (int level = 0; level <= levels; ++level) back.push_back(layer_at(given, largest, level, false, x, y));
  for (int level = levels; level >= 1; --level)
    front.push_back(layer_at(given, largest, -level, false, x, y));
  const Pixel near = side_at(front), far = side_at(back);
  const double own =
      x >= 0 && x < given.width && y >= 0 && y < given.height ? given.image[given.at(x, y)][3] : 0;
  const double nothing = std::max(1 - own, layer_at(given, largest, 0, true, x, y)[0]);
  Pixel both{};
  for (size_t c = 0; c < 4; ++c) both[c] = near[c] + far[c] * (1 - near[3]);
  const double scale = both[3] > 0 ? 1 / std::min(1.0, both[3] + nothing) : 1;
  for (double& each : both) each *= scale;
  return both;
}

void write(const Scenery& given) {
  scene::Plate image, depth;
  image.width = depth.width = given.width;
  image.height = depth.height = given.height;
  depth.channels = {"Z"};
  for (const Pixel& pixel : given.image)
    for (const double each : pixel) image.pixels.push_back(static_cast<float>(each));
  for (const double each : given.depth) depth.pixels.push_back(static_cast<float>(each));
  scene::write_plate(scene::folder() / "scenery.exr", image);
  scene::write_plate(scene::folder() / "scenery_depth.exr", depth);
}

scene::Scene scene_of(const std::string& knobs, const Scenery& given) {
  write(given);
  return scene::Scene(scene::read_plate("scenery.exr") +
                          scene::node("z", "[]", "read", R"("file": "scenery_depth.exr")") +
                          scene::node("disc", "p", "disc_blur", R"("radius": 4)") +
                          scene::node("n", R"({"image": "p", "depth": "z"})", "defocus", knobs),
                      given.width, given.height);
}

// Small discs are drawn as the layers say. Of large ones, which are blurred on smaller images, edges are a
// little softer: where the reference has a step, its foot and its top are off.
TEST(Defocus, DrawsItsLayersAsTheReferenceDoes) {
  const struct {
    int width, height;
    double size, mean, most;
  } cases[] = {{24, 18, 4, 2e-5, 2e-4}, {72, 48, 20, 0.005, 0.1}};
  for (const auto& each : cases) {
    const Scenery given = scenery(each.width, each.height);
    scene::Scene shot = scene_of(R"("focus": 2, "size": )" + std::to_string(each.size), given);
    const auto image = shot.image("n");
    const auto reach = static_cast<int64_t>(each.size);
    EXPECT_EQ(image.extent.window, (host::Box{-reach, -reach, each.width + reach, each.height + reach}));
    double sum = 0, most = 0;
    for (int y = -static_cast<int>(reach); y < each.height + reach; ++y) {
      for (int x = -static_cast<int>(reach); x < each.width + reach; ++x) {
        const auto found = scene::pixel(image, x, each.height - 1 - y);
        const Pixel expected = defocused(given, each.size, x, y);
        for (size_t c = 0; c < 4; ++c) {
          const double off = std::abs(found[c] - expected[c]);
          sum += off;
          most = std::max(most, off);
        }
      }
    }
    const auto count = static_cast<double>((each.width + 2 * reach) * (each.height + 2 * reach) * 4);
    EXPECT_LE(sum / count, each.mean) << each.size;
    EXPECT_LE(most, each.most) << each.size;
  }
}

// All at the distance of the largest disc: what disc_blur draws. All in focus: the image itself. In
// between, what is sharp stays as it is beside what is far away, however far that is blurred.
TEST(Defocus, KeepsWhatIsSharpAndBlursTheRest) {
  Scenery given = scenery(24, 18);
  std::fill(given.depth.begin(), given.depth.end(), 3.0);
  scene::Scene far = scene_of(R"("focus": 1, "curve": "straight", "distance": 2, "size": 4)", given);
  const auto blurred = far.image("n"), disc = far.image("disc");
  ASSERT_EQ(blurred.extent.window, disc.extent.window);
  for (size_t i = 0; i < disc.rgba.size(); ++i) ASSERT_NEAR(blurred.rgba[i], disc.rgba[i], 2e-5) << i;

  scene::Scene near = scene_of(R"("focus": 2.5, "slack": 1, "size": 4, "edges": "repeat")", given);
  EXPECT_EQ(near.image("n").rgba, near.image("p").rgba);

  for (size_t i = 0; i < given.depth.size(); ++i) given.depth[i] = i % 24 < 12 ? 2 : 9;
  scene::Scene post = scene_of(R"("focus": 2, "size": 6, "edges": "repeat")", given);
  const auto sharp = post.image("n"), plate = post.image("p");
  for (int64_t y = 0; y < 18; ++y)
    for (int64_t x = 4; x < 12; ++x)
      for (size_t c = 0; c < 4; ++c)
        ASSERT_NEAR(scene::pixel(sharp, x, y)[c], scene::pixel(plate, x, y)[c], 1e-6) << x << " " << y;
}

}  // namespace
