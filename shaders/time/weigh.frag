#version 420 core
// One image of a weighted sum; the target adds it to what it holds.
#include "image.glsl"

layout(location = 0) out vec4 o_color;
uniform sampler2D u_image;
uniform vec4 u_image_window;
uniform float u_weight;

void main() {
  o_color = read_image(u_image, u_image_window) * u_weight;
}
