#version 420 core
// The image laid out in the target's window: outside its own it is transparent black, or, with
// u_repeat 1, goes on with its edge pixels.
#include "image.glsl"

layout(location = 0) out vec4 o_color;
uniform sampler2D u_image;
uniform vec4 u_image_window;
uniform float u_repeat;

void main() {
  o_color = u_repeat > 0.5 ? read_image_repeat(u_image, u_image_window) : read_image(u_image, u_image_window);
}
