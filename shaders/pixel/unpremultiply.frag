#version 420 core
// Colour without its alpha; where that is 0 there is nothing to divide by, and light stays as it is.
#include "image.glsl"

layout(location = 0) out vec4 o_color;
uniform sampler2D u_image;
uniform vec4 u_image_window;

void main() {
  vec4 image = read_image(u_image, u_image_window);
  o_color = vec4(image.a > 0.0 ? image.rgb / image.a : image.rgb, image.a);
}
