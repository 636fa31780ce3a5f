#version 420 core
// Holds colour between limits. u_low and u_high: the limit, and 1 where it holds.
#include "correction.glsl"

uniform vec2 u_low;
uniform vec2 u_high;

vec3 corrected(vec3 color) {
  if (u_low.y > 0.5) color = max(color, u_low.x);
  if (u_high.y > 0.5) color = min(color, u_high.x);
  return color;
}
