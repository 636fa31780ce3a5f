#include "examples/generator/picture.h"

#include <cmath>
#include <string_view>
#include <vector>

// QUORVEL in strokes with round ends, a font of seven letters.
namespace plates {
namespace {

// Points of a stroke in a letter's box, 0.62 wide and 1 high.
using Stroke = std::vector<Point>;

Stroke arc(Point centre, float rx, float ry, float from, float to) {
  Stroke stroke;
  constexpr int steps = 40;
  for (int i = 0; i <= steps; ++i) {
    const float turn = 6.2831853F * (from + (to - from) * static_cast<float>(i) / steps);
    stroke.push_back({centre.x + rx * std::cos(turn), centre.y + ry * std::sin(turn)});
  }
  return stroke;
}

std::vector<Stroke> letter(char name) {
  constexpr float w = 0.62F;
  switch (name) {
    case 'Q':
      return {arc({w / 2, 0.5F}, w / 2, 0.5F, 0, 1), {{0.38F, 0.22F}, {0.64F, -0.06F}}};
    case 'U': {
      Stroke bowl = arc({w / 2, w / 2}, w / 2, w / 2, 0.5F, 1);
      return {{{0, 1}, {0, w / 2}}, bowl, {{w, w / 2}, {w, 1}}};
    }
    case 'O':
      return {arc({w / 2, 0.5F}, w / 2, 0.5F, 0, 1)};
    case 'R':
      return {{{0, 0}, {0, 1}, {0.32F, 1}},
              arc({0.32F, 0.75F}, 0.25F, 0.25F, 0.25F, -0.25F),
              {{0.32F, 0.5F}, {0, 0.5F}},
              {{0.28F, 0.5F}, {0.58F, 0}}};
    case 'V':
      return {{{0, 1}, {w / 2, 0}, {w, 1}}};
    case 'E':
      return {{{0.52F, 1}, {0, 1}, {0, 0}, {0.52F, 0}}, {{0, 0.52F}, {0.42F, 0.52F}}};
    default:
      return {{{0, 1}, {0, 0}, {0.5F, 0}}};
  }
}

}  // namespace

void paint_title(Picture& picture) {
  constexpr std::string_view word = "QUORVEL";
  constexpr float size = 0.105F;
  constexpr float advance = 1.12F * size;
  const float begin = picture.aspect() / 2 - advance * static_cast<float>(word.size()) / 2 + 0.25F * size;
  for (size_t i = 0; i < word.size(); ++i) {
    const float left = begin + advance * static_cast<float>(i);
    const auto placed = [&](Point p) { return Point{left + p.x * size, 0.80F + p.y * size}; };
    for (const Stroke& stroke : letter(word[i])) {
      for (size_t j = 1; j < stroke.size(); ++j) {
        picture.line(placed(stroke[j - 1]), placed(stroke[j]), 0.0055F, 0.0055F, {1.0F, 0.86F, 0.62F}, 1, 1);
      }
    }
  }
}

}  // namespace plates
