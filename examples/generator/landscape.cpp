#include "examples/generator/picture.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

// Hills behind a lake at dusk, in linear light: the sun is brighter than 1.
namespace plates {
namespace {

constexpr float shore = 0.30F;

struct Ridge {
  float base;
  float relief;
  float scale;
  Colour colour;
  float depth;
  uint32_t seed;
};

constexpr Ridge ridges[] = {{0.47F, 0.10F, 1.6F, {0.230F, 0.140F, 0.190F}, 60, 11},
                            {0.41F, 0.085F, 2.3F, {0.115F, 0.075F, 0.125F}, 35, 23},
                            {0.345F, 0.06F, 3.4F, {0.042F, 0.036F, 0.066F}, 18, 37}};

Colour sky(Point p, float aspect) {
  const float up = std::clamp((p.y - shore) / (1 - shore), 0.0F, 1.0F);
  Colour colour = mix({1.05F, 0.42F, 0.16F}, {0.42F, 0.20F, 0.28F}, ramp(0.05F, 0.45F, up));
  colour = mix(colour, {0.045F, 0.065F, 0.20F}, ramp(0.25F, 1.0F, up));
  const Point sun{aspect * 0.72F, 0.56F};
  const float distance = std::hypot(p.x - sun.x, p.y - sun.y);
  const float halo = std::exp(-distance * 5.5F);
  colour = colour + Colour{1.1F, 0.52F, 0.18F} * halo;
  colour = mix(colour, {7.0F, 4.4F, 2.1F}, 1 - ramp(0.045F, 0.05F, distance));
  // Thin clouds, lit from below where the sun is near.
  const float cloud = ramp(0.1F, 0.9F, fractal(p.x * 1.3F, p.y * 7, 3, 5)) * ramp(0.48F, 0.75F, p.y);
  return mix(colour, mix({0.16F, 0.10F, 0.17F}, {1.25F, 0.55F, 0.28F}, std::exp(-distance * 2.4F)),
             cloud * 0.6F);
}

float crest(const Ridge& ridge, float x) {
  return ridge.base + ridge.relief * fractal(x * ridge.scale, 0.37F, ridge.seed, 6) * 0.6F;
}

struct Seen {
  Colour colour;
  float depth = 100;
};

// What stands above the shore line at a point.
Seen view(Point p, float aspect, float soft) {
  Seen seen{sky(p, aspect), 100};
  for (const Ridge& ridge : ridges) {
    const float cover = ramp(-soft, soft, crest(ridge, p.x) - p.y);
    // Haze gathers in the valleys.
    const float haze = 0.45F * ramp(0.14F, -0.02F, p.y - shore) * std::min(1.0F, ridge.depth / 40);
    const Colour colour = mix(ridge.colour, {0.75F, 0.34F, 0.22F}, haze);
    seen.colour = mix(seen.colour, colour, cover);
    seen.depth += (ridge.depth - seen.depth) * cover;
  }
  return seen;
}

// The mirror image, broken by waves that grow towards the camera.
Seen lake(Point p, float aspect, float soft) {
  const float near = (shore - p.y) / shore;
  const float wave = fractal(p.x * 5, std::pow(1.2F - near, 2.0F) * 40, 51, 3);
  const Point mirrored{p.x + wave * 0.012F * near, 2 * shore - p.y + wave * 0.035F * near};
  Seen seen = view({mirrored.x, std::max(mirrored.y, shore)}, aspect, soft + 0.02F * near);
  seen.colour = mix(seen.colour * 0.72F, {0.022F, 0.030F, 0.062F}, 0.25F + 0.45F * near);
  seen.depth = 3 + 13 * (1 - near);
  return seen;
}

}  // namespace

void paint_landscape(Picture& picture) {
  for (int row = 0; row < picture.height(); ++row) {
    for (int column = 0; column < picture.width(); ++column) {
      const Point p = picture.at(column, row);
      const float soft = picture.pixel();
      const Seen above = view(p, picture.aspect(), soft);
      const Seen below = lake(p, picture.aspect(), soft);
      const float water = ramp(-soft, soft, shore - p.y);
      picture.paint(column, row, mix(above.colour, below.colour, water), 1,
                    above.depth + (below.depth - above.depth) * water);
    }
  }
}

}  // namespace plates
