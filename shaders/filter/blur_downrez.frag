#version 420 core
// Makes the coarse image of a large blur: each texel is the mean of its cell's pixels as far as they
// lie in the window u_bbox (cells.glsl). u_image: the full image. One read a pixel of it in all.

#include "image.glsl"
#include "cells.glsl"

void main() {
  vec2 size = min(vec2(textureSize(u_image, 0)), max(u_bbox.zw - u_bbox.xy, vec2(1.0)));
  vec2 corner = (u_cell + vec2(here())) * u_factor - u_bbox.xy;
  ivec2 from = ivec2(clamp(corner, vec2(0.0), size - 1.0));
  ivec2 to = ivec2(clamp(corner + u_factor, vec2(from) + 1.0, size));
  vec4 total = vec4(0.0);
  int y = from.y;
  do {
    int x = from.x;
    do total += texelFetch(u_image, ivec2(x, y), 0);
    while (++x < to.x);
  } while (++y < to.y);
  o_color = total / (float(to.x - from.x) * float(to.y - from.y));
}
