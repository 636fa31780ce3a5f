#version 420 core
// The image inside a rectangle: each pixel by the part of it that is covered. u_rectangle: left, top,
// right and bottom in this target's pixels. u_soft: over how many pixels it fades towards its edges.
#include "image.glsl"

layout(location = 0) out vec4 o_color;
uniform sampler2D u_image;
uniform vec4 u_image_window;
uniform vec4 u_rectangle;
uniform float u_soft;

void main() {
  vec2 pixel = gl_FragCoord.xy;
  vec2 covered = clamp(min(pixel + 0.5, u_rectangle.zw) - max(pixel - 0.5, u_rectangle.xy), 0.0, 1.0);
  float kept = covered.x * covered.y;
  if (u_soft > 0.0) {
    vec2 inside = clamp(min(pixel - u_rectangle.xy, u_rectangle.zw - pixel) / u_soft, 0.0, 1.0);
    kept *= inside.x * inside.y;
  }
  o_color = kept == 0.0 ? vec4(0.0) : read_image(u_image, u_image_window) * kept;
}
