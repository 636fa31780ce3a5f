#version 420 core
// Blends one image into another: (1 - u_t) a + u_t b.
#include "image.glsl"

layout(location = 0) out vec4 o_color;
uniform sampler2D u_a;
uniform vec4 u_a_window;
uniform sampler2D u_b;
uniform vec4 u_b_window;
uniform float u_t;

void main() {
  o_color = mix(read_image(u_a, u_a_window), read_image(u_b, u_b_window), u_t);
}
