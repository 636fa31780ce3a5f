#version 420 core
// Colour times a matrix, whose rows are u_red, u_green and u_blue.
#include "correction.glsl"

uniform vec3 u_red;
uniform vec3 u_green;
uniform vec3 u_blue;

vec3 corrected(vec3 color) {
  return vec3(dot(u_red, color), dot(u_green, color), dot(u_blue, color));
}
