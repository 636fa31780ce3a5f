#version 420 core
// What a node made, in the channels that it was to change (u_channels 1), and the image that it was
// given in the others. u_follow 1: colour, premultiplied by the image's alpha, is so by the new one;
// light where nothing covers stays as it is.
#include "image.glsl"

layout(location = 0) out vec4 o_color;
uniform sampler2D u_image;
uniform vec4 u_image_window;
uniform sampler2D u_made;
uniform vec4 u_made_window;
uniform vec4 u_channels;
uniform float u_follow;

void main() {
  vec4 image = read_image(u_image, u_image_window);
  vec4 made = read_image(u_made, u_made_window);
  for (int c = 0; c < 4; ++c) o_color[c] = u_channels[c] > 0.5 ? made[c] : image[c];
  if (u_follow > 0.5 && image.a > 0.0) o_color.rgb = image.rgb * (made.a / image.a);
}
