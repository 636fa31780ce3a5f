#version 420 core
// The light that glows: each channel's excess over u_tolerance (in pixel values), at least 0.
// u_image: any image. Formula: max(x - u_tolerance, 0).

#include "image.glsl"

uniform float u_tolerance;

void main() {
  o_color = max(texelFetch(u_image, here(), 0) - u_tolerance, vec4(0.0));
}
