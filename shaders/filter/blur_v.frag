#version 420 core
// The vertical pass of the separable blur (blur.glsl). u_image: any image; u_size: the kernel's size
// in pixels; u_radius: its reach in whole pixels; u_filter: its shape (kernel.glsl).

#include "image.glsl"
#include "kernel.glsl"
#include "texel.glsl"
#include "blur.glsl"

void main() {
  blur(1.0);
}
