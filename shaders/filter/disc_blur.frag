#version 420 core
// The mean over the ellipse of half axes u_radius (x, y) pixels round each pixel, as of a lens out
// of focus. Row dy has the half width h = rx sqrt(1 - (dy / ry)^2); the pixels at its two ends weigh
// what it covers of them, so the edge is smooth. An axis under half a pixel counts as half, one over
// 4096 as that. Samples that are not finite count as 0. u_image: any image; u_prefix: its row sums
// (row_prefix.frag, same size, same u_tile), by which a row costs four reads and one more a tile;
// u_direct 1 adds the pixels up one by one.
// Formula: sum of coverage * pixel over the sum of coverage.

#include "image.glsl"
#include "finite.glsl"

uniform sampler2D u_prefix;
uniform vec2 u_radius;
uniform float u_tile;
uniform float u_direct;

ivec2 centre = ivec2(0), border = ivec2(0);
int tile = 1;
float per_tile = 1.0;
vec4 subtracted = vec4(0.0);  // magnitudes that prefix sums took away again, with their rounding

vec4 pixel(int x, int y) {
  return finite(texelFetch(u_image, ivec2(x, y), 0));
}

vec4 sum_of_pixels(int from, int to, int y) {
  vec4 total = vec4(0.0);
  do total += pixel(from, y);
  while (++from <= to);
  return total;
}

vec4 sum_of_prefixes(int from, int to, int y) {
  int start = int((float(from) + 0.5) * per_tile) * tile;
  vec4 total = texelFetch(u_prefix, ivec2(to, y), 0);
  if (from > start) {
    vec4 before = texelFetch(u_prefix, ivec2(from - 1, y), 0);
    total -= before;
    subtracted += abs(before);
  }
  int x = start + tile - 1;
  if (x < to) {
    do {
      total += texelFetch(u_prefix, ivec2(x, y), 0);
      x += tile;
    } while (x < to);
  }
  return total;
}

// The covered sum of row y: m pixels to each side, the last of them by the part `cover`, the others
// by `inner`. What lies beyond the border is the edge pixel, which the held read of the end has at hand.
vec4 row(int y, int m, float inner, float cover, bool direct) {
  y = clamp(y, 0, border.y);
  int from = max(centre.x - m + 1, 0), to = min(centre.x + m - 1, border.x);
  float left = cover + float(from - (centre.x - m + 1)), right = cover + float(centre.x + m - 1 - to);
  vec4 ends = left * pixel(max(centre.x - m, 0), y) + right * pixel(min(centre.x + m, border.x), y);
  return ends + inner * (direct ? sum_of_pixels(from, to, y) : sum_of_prefixes(from, to, y));
}

vec4 disc(vec2 radius, bool direct) {
  vec4 total = vec4(0.0);
  float weights = 0.0, steep = 1.0 / radius.y;
  int rows = int(ceil(radius.y)) - 1;
  int dy = -rows;
  do {
    float t = float(dy) * steep;
    float h = radius.x * sqrt(max(1.0 - t * t, 0.0));
    float m = max(ceil(h - 0.5), 1.0);
    total += row(centre.y + dy, int(m), min(2.0 * h, 1.0), max(h + 0.5 - m, 0.0), direct);
    weights += 2.0 * h;
  } while (++dy <= rows);
  return total / weights;
}

float largest(vec4 v) {
  return max(max(v.x, v.y), max(v.z, v.w));
}

void main() {
  centre = here();
  border = last(u_image);
  tile = max(whole(u_tile, 4096), 1);
  per_tile = 1.0 / float(tile);
  vec2 radius = mix(vec2(0.5), min(u_radius, 4096.0), greaterThan(u_radius, vec2(0.5)));
  vec4 mean = vec4(0.0);
  bool direct = u_direct > 0.5;
  if (!direct) {
    mean = disc(radius, false);
    // Where a hundred times more was subtracted than is left, the digits are gone.
    direct = !(largest(subtracted) <= 100.0 * largest(abs(mean)) * 3.14 * radius.x * radius.y);
  }
  if (direct) mean = disc(radius, true);
  o_color = mean;
}
