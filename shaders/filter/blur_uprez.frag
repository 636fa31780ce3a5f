#version 420 core
// Brings the coarse image of a large blur back to full size (cells.glsl): Catmull-Rom between the
// centres of the cells, in 16 reads; beyond the outermost centres it goes on along their slope,
// where repeated cells would show as a flat rim. Where the cells read are not negative the result is
// not, and alpha stays at most 1 likewise. u_image: the blurred coarse image.
// Formula, for a pixel at t between the centres b and c of a b c d, along each axis:
// b + t/2 (c - a + t (2a - 5b + 4c - d + t (3b - 3c + d - a))), a = 2b - c or d = 2c - b outside.

#include "image.glsl"
#include "cells.glsl"

// Weights of a b c d, where b is cell `base` of the cells 0 .. border along an axis.
vec4 cubic(float t, float base, float border) {
  vec4 w = 0.5 * vec4(t * (t * (2.0 - t) - 1.0), t * t * (3.0 * t - 5.0) + 2.0,
                      t * (t * (4.0 - 3.0 * t) + 1.0), t * t * (t - 1.0));
  if (base < 0.5) w += w[0] * vec4(-1.0, 2.0, -1.0, 0.0);
  if (base + 1.5 > border) w += w[3] * vec4(0.0, -1.0, 2.0, -1.0);
  return w;
}

// Cells a b c d. One of weight 0 is replaced by the nearest cell: it would still carry a NaN.
ivec4 cells(float at, float base, float border, vec4 weights) {
  vec4 four = mix(vec4(floor(at + 0.5)), base + vec4(-1.0, 0.0, 1.0, 2.0), notEqual(weights, vec4(0.0)));
  return ivec4(clamp(four, vec4(0.0), vec4(border)));
}

void main() {
  vec2 border = vec2(last(u_image));
  vec2 cell = (vec2(here()) + 0.5 + u_bbox.xy) / u_factor - 0.5 - u_cell;
  cell = clamp(cell, vec2(-0.5), border + 0.5);
  vec2 base = clamp(floor(cell), vec2(0.0), max(border - 1.0, 0.0));
  vec4 wx = cubic(cell.x - base.x, base.x, border.x), wy = cubic(cell.y - base.y, base.y, border.y);
  ivec4 x = cells(cell.x, base.x, border.x, wx), y = cells(cell.y, base.y, border.y, wy);

  vec4 total = vec4(0.0), least = vec4(0.0);
  float most = 1.0;
  for (int j = 0; j < 4; ++j) {
    vec4 a = texelFetch(u_image, ivec2(x[0], y[j]), 0), b = texelFetch(u_image, ivec2(x[1], y[j]), 0);
    vec4 c = texelFetch(u_image, ivec2(x[2], y[j]), 0), d = texelFetch(u_image, ivec2(x[3], y[j]), 0);
    total += wy[j] * (wx[0] * a + wx[1] * b + wx[2] * c + wx[3] * d);
    least = min(least, min(min(a, b), min(c, d)));
    most = max(most, max(max(a.a, b.a), max(c.a, d.a)));
  }
  o_color = max(total, least);
  o_color.a = min(o_color.a, most);
}
