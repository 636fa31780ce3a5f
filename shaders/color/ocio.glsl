#version 420 core
// What a colour-space conversion is compiled from: the host puts the generated text, which defines
// vec4 ocio_convert(vec4), in place of the marker line. u_unpremultiply 1 converts colour divided by
// its alpha (coverage.glsl).
#include "image.glsl"
#include "coverage.glsl"
#include "lut.glsl"

layout(location = 0) out vec4 o_color;
uniform sampler2D u_image;
uniform vec4 u_image_window;
uniform float u_unpremultiply;

//@OCIO

void main() {
  vec4 image = read_image(u_image, u_image_window);
  float cover = divisor(image, u_unpremultiply);
  o_color = cover == 0.0 ? image : vec4(ocio_convert(vec4(image.rgb / cover, image.a)).rgb * cover, image.a);
}
