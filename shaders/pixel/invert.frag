#version 420 core
// Every value turned around, 1 - x. With u_coverage 1 colour lies behind its alpha, where
// (1 - c / a) a is a - c; alpha itself is turned around like any value.
#include "image.glsl"

layout(location = 0) out vec4 o_color;
uniform sampler2D u_image;
uniform vec4 u_image_window;
uniform float u_coverage;

void main() {
  vec4 image = read_image(u_image, u_image_window);
  o_color = vec4((u_coverage > 0.5 ? image.a : 1.0) - image.rgb, 1.0 - image.a);
}
