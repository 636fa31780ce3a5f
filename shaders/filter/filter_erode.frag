#version 420 core
// One axis (u_axis: 0 x, 1 y) of shrinking by a kernel (kernel.glsl: u_size, u_radius, u_filter): a
// box gives the plain minimum, rounder kernels let distant pixels bite less. u_in 1 complements
// (1 - x) what is read, u_out 1 what is written: both together grow instead. u_image: any image.
// Formula: the minimum over k of 1 - w_k (1 - x_k), computed as (1 - w_k) + w_k x_k, which keeps
// x_k as it is under a weight of 1.

#include "image.glsl"
#include "kernel.glsl"

uniform float u_axis;
uniform float u_in;
uniform float u_out;

ivec2 centre = ivec2(0), step_one = ivec2(0), border = ivec2(0);
vec4 least = vec4(0.0);
bool complement = false;

void tap(int k, float weight) {
  ivec2 away = k * step_one;
  vec4 a = texelFetch(u_image, max(centre - away, ivec2(0)), 0);
  vec4 b = texelFetch(u_image, min(centre + away, border), 0);
  vec4 bite = complement ? 1.0 - max(a, b) : min(a, b);
  least = min(least, (1.0 - weight) + weight * bite);
}

void main() {
  centre = here();
  border = last(u_image);
  step_one = along(u_axis);
  complement = u_in > 0.5;
  least = texelFetch(u_image, centre, 0);
  if (complement) least = 1.0 - least;
  sweep();
  o_color = u_out > 0.5 ? 1.0 - least : least;
}
