#include "examples/generator/picture.h"

#include <algorithm>
#include <cmath>

// A ball of fur that hops: hair-fine, half transparent edges for the keyer to keep, green light from
// the screen in them for it to take away.
namespace plates {
namespace {

constexpr float two_pi = 6.2831853F;
constexpr float depth = 2;

struct Pose {
  Point centre;
  float radius = 0;
  float squash = 1;  // height over width
  float sway = 0;    // of the hair, to the right
};

// One hop: it crouches, rises, and lands again.
Pose pose_at(float time, float aspect) {
  const float hop = std::max(0.0F, std::sin(two_pi * time));
  const float crouch = std::max(0.0F, -std::sin(two_pi * time));
  return {{aspect * 0.5F + 0.05F * std::sin(two_pi * time * 0.5F), 0.36F + 0.055F * hop - 0.02F * crouch},
          0.2F,
          1 + 0.05F * hop - 0.06F * crouch,
          0.25F * std::cos(two_pi * time)};
}

void paint_screen(Picture& picture) {
  for (int row = 0; row < picture.height(); ++row) {
    for (int column = 0; column < picture.width(); ++column) {
      const Point p = picture.at(column, row);
      // Lamps never light a cloth evenly.
      const float light = 1 - 0.16F * std::abs(p.x / picture.aspect() - 0.45F) -
                          0.12F * std::abs(p.y - 0.6F) + 0.03F * fractal(p.x * 2, p.y * 3, 7, 3);
      picture.paint(column, row, Colour{0.055F, 0.46F, 0.095F} * light, 1, 4);
    }
  }
}

// One hair from the skin outwards, bent by its own weight and by the sway.
void paint_hair(Picture& picture, const Pose& pose, Random& random, float layer) {
  const float angle = random.within(0, two_pi);
  const float root = pose.radius * std::sqrt(random.unit()) * (0.55F + 0.45F * layer);
  Point p{pose.centre.x + root * std::cos(angle), pose.centre.y + root * std::sin(angle) * pose.squash};
  float heading = angle + random.bell() * 0.22F;
  const float length = pose.radius * random.within(0.26F, 0.5F) * (0.65F + 0.35F * root / pose.radius);
  const float curl = random.bell() * 0.12F;
  // Light comes from the upper right, behind the camera; the screen's green from all around behind.
  const float facing = std::clamp(
      0.5F + 0.5F * (std::cos(angle) * 0.5F + std::sin(angle) * 0.8F) * root / pose.radius, 0.0F, 1.0F);
  const float tone = random.within(0.75F, 1.25F);
  const Colour skin = mix({0.16F, 0.05F, 0.03F}, {0.80F, 0.33F, 0.12F}, facing) * tone;
  const Colour tip = mix({0.34F, 0.13F, 0.07F}, {1.05F, 0.62F, 0.30F}, facing) * tone;
  constexpr int steps = 9;
  for (int i = 0; i < steps; ++i) {
    const float t = static_cast<float>(i) / steps;
    const Point next{p.x + std::cos(heading) * length / steps + pose.sway * pose.radius * t * 0.05F,
                     p.y + std::sin(heading) * length / steps - pose.radius * t * 0.012F};
    const float spill = 0.05F * t * std::clamp(root / pose.radius, 0.0F, 1.0F);
    const Colour colour = mix(skin, tip, t) + Colour{0, spill, 0.2F * spill};
    const float thick = 0.0021F * (1 - 0.85F * t);
    picture.line(p, next, thick, thick * 0.9F, colour, 0.9F - 0.35F * t, depth);
    p = next;
    heading += curl;
  }
}

void paint_disc(Picture& picture, Point centre, float radius, Colour colour, float soft) {
  const auto reach = static_cast<int>((radius + soft) / picture.pixel()) + 2;
  const auto middle = static_cast<int>(centre.x / picture.pixel());
  const auto line = picture.height() - 1 - static_cast<int>(centre.y / picture.pixel());
  for (int row = std::max(0, line - reach); row <= std::min(picture.height() - 1, line + reach); ++row) {
    for (int column = std::max(0, middle - reach); column <= std::min(picture.width() - 1, middle + reach);
         ++column) {
      const Point p = picture.at(column, row);
      const float distance = std::hypot(p.x - centre.x, p.y - centre.y);
      const float edge = std::max(soft, picture.pixel());
      const float cover = 1 - ramp(radius - edge * 0.5F, radius + edge * 0.5F, distance);
      if (cover > 0) picture.paint(column, row, colour, cover, depth);
    }
  }
}

void paint_face(Picture& picture, const Pose& pose) {
  for (const float side : {-1.0F, 1.0F}) {
    const Point eye{pose.centre.x + side * 0.075F, pose.centre.y + 0.045F * pose.squash};
    paint_disc(picture, eye, 0.052F, {0.10F, 0.035F, 0.02F}, 0.016F);
    paint_disc(picture, eye, 0.044F, {0.86F, 0.84F, 0.80F}, 0.004F);
    paint_disc(picture, {eye.x + 0.004F, eye.y - 0.002F}, 0.029F, {0.05F, 0.16F, 0.22F}, 0.004F);
    paint_disc(picture, {eye.x + 0.004F, eye.y - 0.002F}, 0.017F, {0.008F, 0.008F, 0.01F}, 0.004F);
    paint_disc(picture, {eye.x + 0.016F, eye.y + 0.015F}, 0.0075F, {2.2F, 2.1F, 1.9F}, 0.003F);
  }
  constexpr int steps = 16;
  for (int i = 0; i < steps; ++i) {
    const auto on_mouth = [&](int step) {
      const float t = 2 * static_cast<float>(step) / steps - 1;
      return Point{pose.centre.x + 0.045F * t, pose.centre.y - 0.052F + 0.018F * t * t};
    };
    picture.line(on_mouth(i), on_mouth(i + 1), 0.004F, 0.004F, {0.05F, 0.012F, 0.01F}, 0.95F, depth);
  }
}

}  // namespace

void paint_creature(Picture& picture, float time) {
  const Pose pose = pose_at(time, picture.aspect());
  paint_screen(picture);
  // Every frame combs the same hairs.
  Random random(20);
  paint_disc(picture, pose.centre, pose.radius * 0.9F, {0.17F, 0.055F, 0.03F}, 0.03F);
  constexpr int hairs = 9000;
  for (int i = 0; i < hairs; ++i) paint_hair(picture, pose, random, 1 - static_cast<float>(i) / hairs);
  paint_face(picture, pose);
}

}  // namespace plates
