#version 420 core
// For images that shrink: where a pixel covers more than one and a half texels one way, the mean of up
// to 16 x 16 bilinear samples stands for its area. Elsewhere u_filter: 1 bilinear, 2 cubic.
#include "resample.glsl"

uniform float u_filter;
const float most_samples = 16.0;

vec4 mean(ivec2 count) {
  vec4 total = vec4(0.0);
  for (int j = 0; j < count.y; ++j) {
    for (int i = 0; i < count.x; ++i) {
      vec3 place = mapped(gl_FragCoord.xy + (vec2(i, j) + 0.5) / vec2(count) - 0.5);
      if (place.z > 0.0) total += bilinear(place.xy);
    }
  }
  return total / float(count.x * count.y);
}

void main() {
  vec3 place = mapped(gl_FragCoord.xy);
  // How the position moves, a pixel to the side and a pixel down.
  vec2 across = (vec2(u_row_x.x, u_row_y.x) - place.xy * u_row_w.x) / place.z;
  vec2 down = (vec2(u_row_x.y, u_row_y.y) - place.xy * u_row_w.y) / place.z;
  ivec2 count = ivec2(clamp(floor(vec2(length(across), length(down)) + 0.5), 1.0, most_samples));
  if (count != ivec2(1)) show(mean(count), place.z);
  else if (u_filter < 1.5) show(bilinear(place.xy), place.z);
  else show(cubic(place.xy), place.z);
}
