#version 420 core
// What a colour-space conversion is compiled from: the host puts the generated text, which defines
// vec4 ocio_convert(vec4), in place of the marker line. u_unpremultiply 1 converts colour divided by
// its alpha; colour without coverage is left alone then.
#include "image.glsl"
#include "lut.glsl"

layout(location = 0) out vec4 o_color;
uniform sampler2D u_image;
uniform vec4 u_image_window;
uniform float u_unpremultiply;

//@OCIO

void main() {
  vec4 image = read_image(u_image, u_image_window);
  if (u_unpremultiply < 0.5) o_color = vec4(ocio_convert(image).rgb, image.a);
  else if (image.a > 0.0) o_color = vec4(ocio_convert(vec4(image.rgb / image.a, image.a)).rgb * image.a, image.a);
  else o_color = image;
}
