#version 420 core
// Merges one channel of u_a with one of u_b into a channel of u_b. u_channels: the channel of a and
// that of b, -1 for one that counts as 0, and the channel to write; u_op: the operation's number. With
// a and b the two values:
#include "image.glsl"

layout(location = 0) out vec4 o_color;
uniform sampler2D u_a;
uniform vec4 u_a_window;
uniform sampler2D u_b;
uniform vec4 u_b_window;
uniform vec3 u_channels;
uniform float u_op;

float merged(float a, float b) {
  switch (int(u_op + 0.5)) {
    case 0: return a + b - a * b;                // union: a + b - ab
    case 1: return abs(a - b);                   // absminus: |a - b|
    case 2: return a != 0.0 ? a : b;             // b if not a: a, and b where a is 0
    case 3: return b == 0.0 ? 0.0 : a / b;       // divide: a / b, 0 where b is 0
    case 4: return b - a;                        // from: b - a
    case 5: return a * b;                        // in: ab
    case 6: return max(a, b);                    // max
    case 7: return min(a, b);                    // min
    case 8: return a - b;                        // minus: a - b
    case 9: return a * b;                        // multiply: ab
    case 10: return a * (1.0 - b);               // out: a(1 - b)
    case 11: return a + b;                       // plus: a + b
    case 12: return b * (1.0 - a);               // stencil: b(1 - a)
  }
  return a + b - 2.0 * a * b;                    // xor (13): a + b - 2ab
}

float channel(vec4 image, float index) {
  return index < -0.5 ? 0.0 : image[int(index + 0.5)];
}

void main() {
  vec4 background = read_image(u_b, u_b_window);
  float result = merged(channel(read_image(u_a, u_a_window), u_channels.x), channel(background, u_channels.y));
  o_color = background;
  o_color[int(u_channels.z + 0.5)] = result;
}
