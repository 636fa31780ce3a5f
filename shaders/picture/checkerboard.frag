#version 420 core
// Fields of u_size, u_even and u_odd in turn from the lower left corner of the format; a pixel that lies
// on several is their mean by area.
#include "image.glsl"

layout(location = 0) out vec4 o_color;
uniform vec2 u_size;
uniform vec4 u_even;
uniform vec4 u_odd;

// How much of 0 to x lies on even fields.
vec2 even_until(vec2 x) {
  return floor(x / (2.0 * u_size)) * u_size + min(mod(x, 2.0 * u_size), u_size);
}

void main() {
  vec2 low = knob_position() - 0.5;
  vec2 even = even_until(low + 1.0) - even_until(low);
  float share = even.x * even.y + (1.0 - even.x) * (1.0 - even.y);
  o_color = mix(u_odd, u_even, share);
}
