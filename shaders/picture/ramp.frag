#version 420 core
// From one colour to another between two points, beyond which they stay. u_shape 0: straight, 1: smooth,
// t t (3 - 2 t), 2: in rings around the first point.
#include "image.glsl"

layout(location = 0) out vec4 o_color;
uniform vec2 u_from;
uniform vec2 u_to;
uniform vec4 u_first;
uniform vec4 u_last;
uniform float u_shape;

void main() {
  vec2 way = u_to - u_from;
  vec2 here = knob_position() - u_from;
  float size = dot(way, way);
  float t = u_shape > 1.5 ? sqrt(dot(here, here) / size) : dot(here, way) / size;
  t = clamp(size > 0.0 ? t : 1.0, 0.0, 1.0);
  if (u_shape > 0.5 && u_shape < 1.5) t = t * t * (3.0 - 2.0 * t);
  o_color = mix(u_first, u_last, t);
}
