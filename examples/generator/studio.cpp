#include "examples/generator/studio.h"

#include "examples/generator/picture.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <optional>

// A small ray tracer, so that the passes add up to the picture as those of a real one do.
namespace plates {
namespace {

struct Vector {
  float x = 0;
  float y = 0;
  float z = 0;  // away from the camera
};

Vector operator+(Vector a, Vector b) {
  return {a.x + b.x, a.y + b.y, a.z + b.z};
}
Vector operator-(Vector a, Vector b) {
  return {a.x - b.x, a.y - b.y, a.z - b.z};
}
Vector operator*(Vector a, float k) {
  return {a.x * k, a.y * k, a.z * k};
}
float dot(Vector a, Vector b) {
  return a.x * b.x + a.y * b.y + a.z * b.z;
}
Vector unit(Vector a) {
  return a * (1 / std::sqrt(dot(a, a)));
}

struct Ball {
  Vector centre;
  float radius;
  Colour colour;
};

constexpr Ball balls[] = {{{-1.02F, -0.36F, 2.1F}, 0.36F, {0.55F, 0.035F, 0.03F}},
                          {{-0.55F, 0.34F, 3.3F}, 0.24F, {0.75F, 0.46F, 0.06F}},
                          {{0.02F, -0.42F, 3.4F}, 0.42F, {0.03F, 0.26F, 0.30F}},
                          {{1.2F, 0.0F, 4.6F}, 0.5F, {0.70F, 0.66F, 0.60F}},
                          {{-1.25F, -0.2F, 6.2F}, 0.55F, {0.10F, 0.30F, 0.05F}},
                          {{3.0F, -1.1F, 7.5F}, 0.55F, {0.62F, 0.16F, 0.02F}},
                          {{4.4F, 1.5F, 10}, 0.75F, {0.30F, 0.06F, 0.32F}},
                          {{-0.1F, 1.0F, 13}, 0.7F, {0.70F, 0.12F, 0.16F}}};

constexpr float focal = 1.2F;     // of a picture one high
constexpr float convergence = 4;  // where both eyes see the same
constexpr float nothing = 1000;   // the depth of it
const Vector lamp = unit({-0.55F, 0.75F, -0.6F});
const Vector sun = unit({0.39F, 0.06F, focal});

// The dusk all around, its lower half the lake.
Colour dusk(Vector way) {
  const float up = std::abs(way.y);
  Colour colour = mix({1.05F, 0.42F, 0.16F}, {0.42F, 0.20F, 0.28F}, ramp(0, 0.35F, up));
  colour = mix(colour, {0.045F, 0.065F, 0.20F}, ramp(0.2F, 0.9F, up));
  colour = colour * (0.35F + 0.65F * ramp(-0.6F, 1, way.z));  // darker behind the camera
  const float near_sun = dot(way, sun);
  colour = colour + Colour{1.1F, 0.52F, 0.18F} * std::exp(-(1 - near_sun) * 14);
  colour = mix(colour, {9, 5.5F, 2.6F}, ramp(0.9975F, 0.9985F, near_sun));
  // A window of a soft lamp.
  colour = mix(colour, {3.2F, 3.1F, 3.0F}, ramp(0.93F, 0.94F, dot(way, lamp)));
  return way.y < 0 ? colour * 0.45F : colour;
}

struct Hit {
  const Ball* ball;
  float distance;
};

std::optional<Hit> first_hit(Vector from, Vector way, const Ball* skipped) {
  std::optional<Hit> nearest;
  for (const Ball& ball : balls) {
    if (&ball == skipped) continue;
    const Vector to = ball.centre - from;
    const float along = dot(to, way);
    const float inside = ball.radius * ball.radius - (dot(to, to) - along * along);
    if (inside < 0 || along < 0) continue;
    const float distance = along - std::sqrt(inside);
    if (distance > 0 && (!nearest || distance < nearest->distance)) nearest = Hit{&ball, distance};
  }
  return nearest;
}

Colour diffuse_at(const Ball& ball, Vector point, Vector normal) {
  const bool lit = !first_hit(point, lamp, &ball);
  const float from_lamp = lit ? 0.9F * std::max(0.0F, dot(normal, lamp)) : 0.0F;
  const float from_sun = 0.5F * std::max(0.0F, dot(normal, sun) + 0.25F);
  const float sky = 0.5F + 0.5F * normal.y;
  const Colour light = Colour{1, 0.97F, 0.93F} * from_lamp + Colour{1.6F, 0.7F, 0.3F} * from_sun +
                       mix({0.16F, 0.08F, 0.06F}, {0.12F, 0.12F, 0.22F}, sky);
  return {ball.colour.r * light.r, ball.colour.g * light.g, ball.colour.b * light.b};
}

struct Shade {
  Colour diffuse, specular, reflection;
};

Shade shade(const Ball& ball, Vector point, Vector way) {
  const Vector normal = (point - ball.centre) * (1 / ball.radius);
  const Vector mirrored = way - normal * (2 * dot(way, normal));
  const float facing = std::clamp(-dot(way, normal), 0.0F, 1.0F);
  const float glaze = 0.14F + 0.86F * std::pow(1 - facing, 5.0F);
  const auto other = first_hit(point, mirrored, &ball);
  Colour seen = dusk(mirrored);
  if (other) {
    const Vector there = point + mirrored * other->distance;
    seen = diffuse_at(*other->ball, there, (there - other->ball->centre) * (1 / other->ball->radius));
  }
  const float gleam = std::pow(std::max(0.0F, dot(mirrored, lamp)), 60.0F);
  return {diffuse_at(ball, point, normal) * (1 - glaze), Colour{1, 0.96F, 0.9F} * (gleam * 0.9F),
          seen * glaze};
}

struct Sums {
  Shade light;
  float alpha = 0;
  float depth = nothing;
};

Sums trace(Point p, float aspect, float eye) {
  const float reach = convergence / focal;
  const Vector target{(p.x - aspect / 2) * reach, (p.y - 0.5F) * reach, convergence};
  const Vector from{eye, 0, 0};
  const Vector way = unit(target - from);
  const auto hit = first_hit(from, way, nullptr);
  if (!hit) return {};
  const Vector point = from + way * hit->distance;
  return {shade(*hit->ball, point, way), 1, point.z};
}

void put(std::vector<float>& values, Colour colour) {
  values.insert(values.end(), {colour.r, colour.g, colour.b});
}

}  // namespace

std::vector<Pass> trace_studio(int width, int height, float eye) {
  constexpr int side = 4;  // samples of a pixel, each way
  constexpr float part = 1.0F / (side * side);
  Pass beauty{"beauty", {"R", "G", "B", "A"}, true, {}};
  Pass diffuse{"diffuse", {"R", "G", "B"}, true, {}};
  Pass specular = diffuse, reflection = diffuse;
  specular.name = "specular";
  reflection.name = "reflection";
  Pass depth{"depth", {"Z"}, false, {}};
  const Picture grid(width, height);
  for (int row = 0; row < height; ++row) {
    for (int column = 0; column < width; ++column) {
      Sums sums;
      for (int i = 0; i < side * side; ++i) {
        Point p = grid.at(column, row);
        p.x += (static_cast<float>(i % side) + 0.5F - side / 2.0F) / side * grid.pixel();
        p.y += (static_cast<float>(i / side) + 0.5F - side / 2.0F) / side * grid.pixel();
        const Sums one = trace(p, grid.aspect(), eye);
        sums.light.diffuse = sums.light.diffuse + one.light.diffuse * part;
        sums.light.specular = sums.light.specular + one.light.specular * part;
        sums.light.reflection = sums.light.reflection + one.light.reflection * part;
        sums.alpha += one.alpha * part;
        sums.depth = std::min(sums.depth, one.depth);
      }
      put(diffuse.values, sums.light.diffuse);
      put(specular.values, sums.light.specular);
      put(reflection.values, sums.light.reflection);
      put(beauty.values, sums.light.diffuse + sums.light.specular + sums.light.reflection);
      beauty.values.push_back(sums.alpha);
      depth.values.push_back(sums.depth);
    }
  }
  return {beauty, diffuse, specular, reflection, depth};
}

}  // namespace plates
