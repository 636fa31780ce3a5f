#version 420 core
// Turns the blurred edge of a matte into a sharp edge elsewhere: the stretch of the blur's ramp that
// lies where the edge is to be becomes 0 .. 1. u_image: the blurred image; u_a, u_b: slope and offset
// of that stretch; u_grow 1 works on the complement (1 - x), so the edge moves outward.
// Formula: clamp(u_a * x + u_b, 0, 1).

#include "image.glsl"

uniform float u_a;
uniform float u_b;
uniform float u_grow;

void main() {
  vec4 x = texelFetch(u_image, here(), 0);
  o_color = u_grow > 0.5 ? 1.0 - clamp(u_a * (1.0 - x) + u_b, 0.0, 1.0) : clamp(u_a * x + u_b, 0.0, 1.0);
}
