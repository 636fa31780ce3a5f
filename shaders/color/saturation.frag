#version 420 core
// Moves colour away from the grey of its luminance, or towards it:
//   luminance + saturation * (colour - luminance)
#include "correction.glsl"

uniform vec3 u_luminance;
uniform float u_saturation;

vec3 corrected(vec3 color) {
  return mix(vec3(dot(color, u_luminance)), color, u_saturation);
}
