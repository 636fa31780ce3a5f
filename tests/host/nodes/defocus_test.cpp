#include "tests/host/render/scene.h"
#include "tests/support/reference.h"

#include <algorithm>
#include <cmath>

#include <gtest/gtest.h>

namespace {

using support::Picture;

constexpr int levels = 5;

// Hills far away, a sharp post with a soft left edge of alpha, and a branch near by; noise in both.
struct Scenery {
  Picture image;
  std::vector<float> depth;

  Scenery(int width, int height) : image(width, height) {
    std::mt19937 random(21);
    std::uniform_real_distribution<float> value(0, 1);
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        const bool post = x >= width / 3 && x < width / 2;
        const bool branch = y >= height / 2 && y < 3 * height / 4;
        const double hills = 0.5 + 0.3 * std::sin(x * 0.9) * std::cos(y * 0.7);
        const auto grey = static_cast<float>(branch ? 0.2 : post ? 0.9 : hills);
        const float alpha = x < 4 ? static_cast<float>(x) / 4 : 1;
        const float rgba[] = {grey, value(random), 1 - grey, 1};
        for (int c = 0; c < 4; ++c) image.at(x, y, c) = alpha * rgba[c];
        depth.push_back(branch ? 1 : post ? 2 : 2.5F + 6 * value(random));
      }
    }
  }
};

// The level of a depth when 2 is sharp, as a lens draws: negative before it.
double level_of(double depth) {
  const double size = std::min(std::abs(depth - 2) / depth, 1.0);
  return (depth < 2 ? -1 : 1) * std::sqrt(size) * levels;
}

// What lies at a level, blurred by its disc, with as much around it as the largest disc reaches. And, as
// level 9, where there is nothing.
Picture layer(const Scenery& given, int reach, int level) {
  const Picture& image = given.image;
  const bool nothing = level == 9;
  Picture all(image.w + 2 * reach, image.h + 2 * reach, nothing ? 1.0F : 0.0F);
  for (int y = 0; y < image.h; ++y) {
    for (int x = 0; x < image.w; ++x) {
      const double depth = given.depth[static_cast<size_t>(y * image.w + x)];
      const auto weight = static_cast<float>(std::max(0.0, 1 - std::abs(level_of(depth) - level)));
      for (int c = 0; c < 4; ++c)
        all.at(x + reach, y + reach, c) = nothing ? 1 - image.at(x, y, 3) : weight * image.at(x, y, c);
    }
  }
  const int size = nothing ? levels : level;
  const double radius = static_cast<double>(reach * size * size) / (levels * levels);
  return radius < 0.5 ? all : reference::disc(all, radius, radius);
}

using Pixel = std::array<double, 4>;

// Layers of one side at a pixel, nearest first, each behind those before it, scaled up to all that there was.
Pixel side_at(const std::vector<Picture>& layers, int x, int y) {
  Pixel seen{};
  double all = 0;
  for (const Picture& each : layers) {
    const double open = 1 - std::min(seen[3], 1.0);
    for (int c = 0; c < 4; ++c) seen[static_cast<size_t>(c)] += static_cast<double>(each.at(x, y, c)) * open;
    all += static_cast<double>(each.at(x, y, 3));
  }
  if (seen[3] <= 0) return seen;
  const double scale = std::min(all, 1.0) / seen[3];
  for (double& each : seen) each *= scale;
  return seen;
}

// The whole, as large as its layers.
Picture defocused(const Scenery& given, int reach) {
  std::vector<Picture> back, front;
  for (int level = 0; level <= levels; ++level) back.push_back(layer(given, reach, level));
  for (int level = levels; level >= 1; --level) front.push_back(layer(given, reach, -level));
  const Picture open = layer(given, reach, 9);
  Picture both(open.w, open.h);
  for (int y = 0; y < both.h; ++y) {
    for (int x = 0; x < both.w; ++x) {
      const Pixel near = side_at(front, x, y), far = side_at(back, x, y);
      const int u = x - reach, v = y - reach;
      const bool inside = u >= 0 && u < given.image.w && v >= 0 && v < given.image.h;
      const double own = inside ? static_cast<double>(given.image.at(u, v, 3)) : 0;
      const double nothing = std::max(1 - own, static_cast<double>(open.at(x, y, 0)));
      const double alpha = near[3] + far[3] * (1 - near[3]);
      const double scale = alpha > 0 ? 1 / std::min(1.0, alpha + nothing) : 1;
      for (size_t c = 0; c < 4; ++c)
        both.at(x, y, static_cast<int>(c)) = static_cast<float>((near[c] + far[c] * (1 - near[3])) * scale);
    }
  }
  return both;
}

scene::Scene scene_of(const std::string& knobs, const Scenery& given) {
  const int width = given.image.w, height = given.image.h;
  scene::write_plate("scenery.exr", {width, height, scene::rgba_names, given.image.rgba});
  scene::write_plate("scenery_depth.exr", {width, height, {"Z"}, given.depth});
  return scene::Scene(scene::read_plate("scenery.exr") + scene::read_plate("scenery_depth.exr", "z") +
                          scene::node("disc", "p", "disc_blur", R"("radius": 4)") +
                          scene::node("n", R"({"image": "p", "depth": "z"})", "defocus", knobs),
                      width, height);
}

// Small discs are drawn as the layers say. Of large ones, which are blurred on smaller images, edges are a
// little softer: where the reference has a step, its foot and its top are off.
TEST(Defocus, DrawsItsLayersAsTheReferenceDoes) {
  const struct {
    int width, height, size;
    double mean, most;
  } cases[] = {{24, 18, 4, 2e-5, 2e-4}, {72, 48, 20, 0.005, 0.1}};
  for (const auto& each : cases) {
    const Scenery given(each.width, each.height);
    const auto image = scene_of(R"("focus": 2, "size": )" + std::to_string(each.size), given).image("n");
    const Picture expected = defocused(given, each.size);
    EXPECT_EQ(image.extent.window,
              (host::Box{-each.size, -each.size, each.width + each.size, each.height + each.size}));
    ASSERT_EQ(image.rgba.size(), expected.rgba.size());
    double sum = 0, most = 0;
    for (size_t i = 0; i < expected.rgba.size(); ++i) {
      const double off = std::abs(static_cast<double>(image.rgba[i]) - static_cast<double>(expected.rgba[i]));
      sum += off;
      most = std::max(most, off);
    }
    EXPECT_LE(sum / static_cast<double>(expected.rgba.size()), each.mean) << each.size;
    EXPECT_LE(most, each.most) << each.size;
  }
}

// All at the distance of the largest disc: what disc_blur draws. All in focus: the image itself.
TEST(Defocus, IsADiscBlurOfWhatIsFarAndKeepsWhatIsSharp) {
  Scenery given(24, 18);
  std::fill(given.depth.begin(), given.depth.end(), 3.0F);
  scene::Scene far = scene_of(R"("focus": 1, "curve": "straight", "distance": 2, "size": 4)", given);
  const auto blurred = far.image("n"), disc = far.image("disc");
  ASSERT_EQ(blurred.extent.window, disc.extent.window);
  for (size_t i = 0; i < disc.rgba.size(); ++i) ASSERT_NEAR(blurred.rgba[i], disc.rgba[i], 2e-5) << i;

  scene::Scene near = scene_of(R"("focus": 2.5, "slack": 1, "size": 4, "edges": "repeat")", given);
  EXPECT_EQ(near.image("n").rgba, near.image("p").rgba);
}

}  // namespace
