#version 420 core
// Strengthens what a blur takes away. u_image: the image; u_blur: its blur, of the same size;
// u_amount: how much; u_min, u_max: limits of the difference, in pixel values. Alpha stays.
// Formula: colour + u_amount * clamp(image - blur, u_min, u_max).

#include "image.glsl"

uniform sampler2D u_blur;
uniform float u_amount;
uniform float u_min;
uniform float u_max;

void main() {
  vec4 image = texelFetch(u_image, here(), 0);
  vec3 detail = image.rgb - texelFetch(u_blur, here(), 0).rgb;
  o_color = vec4(image.rgb + u_amount * min(max(detail, vec3(u_min)), vec3(u_max)), image.a);
}
