#version 420 core
// What an image has at one level of u_levels, in part what lies up to a level beside it, as the mean of
// u_factor by u_factor pixels. u_nothing 1: what is transparent instead, at any level.
#include "image.glsl"

layout(location = 0) out vec4 o_color;
uniform sampler2D u_image;
uniform sampler2D u_levels;
uniform float u_level;
uniform float u_factor;
uniform float u_nothing;

void main() {
  int factor = int(u_factor + 0.5);
  ivec2 first = ivec2(gl_FragCoord.xy) * factor;
  ivec2 size = textureSize(u_image, 0);
  vec4 total = vec4(0.0);
  for (int y = first.y; y < min(first.y + factor, size.y); ++y) {
    for (int x = first.x; x < min(first.x + factor, size.x); ++x) {
      vec4 image = texelFetch(u_image, ivec2(x, y), 0);
      float level = texelFetch(u_levels, ivec2(x, y), 0).r;
      total += u_nothing > 0.5 ? vec4(1.0 - image.a) : image * max(1.0 - abs(level - u_level), 0.0);
    }
  }
  o_color = total / (u_factor * u_factor);
}
