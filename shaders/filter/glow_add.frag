#version 420 core
// Adds blurred light to an image. u_image: the image; u_glow: the light, of the same size;
// u_saturation: 0 turns the light grey by its Rec. 709 luminance, 1 leaves it; u_tint: a factor for
// each of red, green, blue; u_brightness: a factor for the light and its alpha; u_effect_only: 1
// leaves the image out. Alpha grows by the light's, to 1 at most, and never shrinks to that limit.
// Formula: image + u_brightness * u_tint * mix(luminance, light, u_saturation).

#include "image.glsl"

uniform sampler2D u_glow;
uniform vec3 u_tint;
uniform float u_brightness;
uniform float u_saturation;
uniform float u_effect_only;

void main() {
  vec4 image = u_effect_only > 0.5 ? vec4(0.0) : texelFetch(u_image, here(), 0);
  vec4 light = texelFetch(u_glow, here(), 0);
  float luminance = dot(light.rgb, vec3(0.2126, 0.7152, 0.0722));
  light.rgb = mix(vec3(luminance), light.rgb, u_saturation) * u_tint;
  vec4 sum = image + u_brightness * light;
  sum.a = min(sum.a, max(image.a, 1.0));
  o_color = u_brightness == 0.0 ? image : sum;  // a NaN in the light must not come through times 0
}
