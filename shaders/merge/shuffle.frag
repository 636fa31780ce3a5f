#version 420 core
// Puts channels of two images together. u_codes says for each output channel where it comes from:
// 0 to 3 red to alpha of u_first, 4 zero, 5 one, 6 to 9 red to alpha of u_second, 10 the channel of
// u_first that stands there already.
#include "image.glsl"

layout(location = 0) out vec4 o_color;
uniform sampler2D u_first;
uniform vec4 u_first_window;
uniform sampler2D u_second;
uniform vec4 u_second_window;
uniform vec4 u_codes;

void main() {
  vec4 first = read_image(u_first, u_first_window);
  vec4 second = read_image(u_second, u_second_window);
  for (int c = 0; c < 4; ++c) {
    int code = int(u_codes[c] + 0.5);
    o_color[c] = code < 4 ? first[code] : code == 4 ? 0.0 : code == 5 ? 1.0 : code < 10 ? second[code - 6] : first[c];
  }
}
