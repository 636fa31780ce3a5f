#version 420 core
// Black and white points, gain, lift and gamma, a factor each for red, green and blue:
//   y = multiply * (gain - lift) * (x - blackpoint) / (whitepoint - blackpoint) + lift + offset
//   y^(1 / gamma), negative values as they are; then held at 0 and at 1 where asked.
#include "correction.glsl"

uniform vec3 u_blackpoint;
uniform vec3 u_whitepoint;
uniform vec3 u_lift;
uniform vec3 u_gain;
uniform vec3 u_multiply;
uniform vec3 u_offset;
uniform vec3 u_gamma;
uniform float u_clamp_black;
uniform float u_clamp_white;

vec3 corrected(vec3 x) {
  vec3 range = u_whitepoint - u_blackpoint;
  range = mix(range, vec3(1e-9), equal(range, vec3(0.0)));
  vec3 y = u_multiply * (u_gain - u_lift) * (x - u_blackpoint) / range + u_lift + u_offset;
  if (u_gamma != vec3(1.0)) y = mix(pow(max(y, 0.0), 1.0 / u_gamma), y, lessThanEqual(y, vec3(0.0)));
  if (u_clamp_black > 0.5) y = max(y, 0.0);
  if (u_clamp_white > 0.5) y = min(y, 1.0);
  return y;
}
