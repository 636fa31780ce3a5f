#version 420 core
// The image with the colour from a fill's pyramid below it. A pixel's own colour counts from u_trust
// (not at all) to alpha 1 (alone). u_keep_alpha 1 gives the filled colour the image's alpha again,
// which mends soft edges; 0 leaves it opaque.
#include "image.glsl"
#include "fill_above.glsl"

layout(location = 0) out vec4 o_color;
uniform sampler2D u_image;
uniform vec4 u_image_window;
uniform float u_trust;
uniform float u_keep_alpha;

void main() {
  vec4 image = read_image(u_image, u_image_window);
  vec4 fill = above();
  float weight = clamp((image.a - u_trust) / (1.0 - u_trust), 0.0, 1.0);
  vec4 own = image.a > 0.0 ? vec4(image.rgb / image.a, 1.0) * weight : vec4(0.0);
  vec4 total = own + (1.0 - weight) * fill;
  vec4 filled = total.a > 0.0 ? vec4(total.rgb / total.a, 1.0) : vec4(0.0);
  o_color = u_keep_alpha > 0.5 ? vec4(filled.rgb * image.a, image.a) : filled;
}
