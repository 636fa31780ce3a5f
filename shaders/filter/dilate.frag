#version 420 core
// One axis (u_axis: 0 x, 1 y) of growing or shrinking by u_n + u_frac pixels: the largest (u_max 1)
// or smallest (0) value within u_n pixels, mixed by u_frac with the one within u_n + 1. u_image: any
// image, each channel by itself. 2 u_n + 1 reads, fewer near the border, two more for a fraction.

#include "image.glsl"

uniform float u_n;
uniform float u_frac;
uniform float u_max;
uniform float u_axis;

void main() {
  ivec2 centre = here(), border = last(u_image), one = along(u_axis);
  int at = u_axis > 0.5 ? centre.y : centre.x;
  int most = u_axis > 0.5 ? border.y : border.x;
  int n = whole(u_n, most);  // farther away there is only the edge pixel again
  float turn = u_max > 0.5 ? 1.0 : -1.0;

  int k = max(-n, -at), to = min(n, most - at);
  vec4 inner = turn * texelFetch(u_image, centre + k * one, 0);
  if (k < to) {
    do inner = max(inner, turn * texelFetch(u_image, centre + ++k * one, 0));
    while (k < to);
  }
  vec4 result = inner;
  if (u_frac > 0.0) {
    vec4 ring = max(turn * read(u_image, centre - (n + 1) * one), turn * read(u_image, centre + (n + 1) * one));
    result = mix(inner, max(inner, ring), u_frac);
  }
  o_color = turn * result;
}
