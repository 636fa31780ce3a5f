#version 420 core
// A matte from a value of the colour without its coverage. u_channel: 0 luminance (Rec. 709), 1 to 4
// red to alpha, 5 the smallest and 6 the largest of red, green and blue, 7 their saturation
// (largest - smallest) / largest. u_range: the matte rises from 0 to 1 from x to y, and falls back
// from z to w; where both ends are one value it is a step, and that value is inside. u_invert 1 turns
// it around. u_output: 0 the image times the matte, 1 the matte, 2 the image with the matte as alpha.
// u_coverage 0: alpha is no coverage, so nothing is divided and the matte alone counts.
#include "image.glsl"

layout(location = 0) out vec4 o_color;
uniform sampler2D u_image;
uniform vec4 u_image_window;
uniform float u_channel;
uniform vec4 u_range;
uniform float u_invert;
uniform float u_output;
uniform float u_coverage;

float value_of(vec3 color, float alpha) {
  float least = min(min(color.r, color.g), color.b);
  float most = max(max(color.r, color.g), color.b);
  switch (int(u_channel + 0.5)) {
    case 1: return color.r;
    case 2: return color.g;
    case 3: return color.b;
    case 4: return alpha;
    case 5: return least;
    case 6: return most;
    case 7: return most > 0.0 ? (most - least) / most : 0.0;
  }
  return dot(color, vec3(0.2126, 0.7152, 0.0722));
}

float matte_of(float value) {
  if (value < u_range.y) return value <= u_range.x ? 0.0 : (value - u_range.x) / (u_range.y - u_range.x);
  if (value > u_range.z) return value >= u_range.w ? 0.0 : (u_range.w - value) / (u_range.w - u_range.z);
  return 1.0;
}

void main() {
  vec4 image = read_image(u_image, u_image_window);
  float cover = u_coverage > 0.5 ? image.a : 1.0;
  float matte = matte_of(value_of(cover > 0.0 ? image.rgb / cover : image.rgb, image.a));
  if (u_invert > 0.5) matte = 1.0 - matte;
  if (u_output < 0.5) o_color = vec4(image.rgb, cover) * matte;
  else if (u_output < 1.5) o_color = vec4(matte * cover);
  else o_color = vec4(image.rgb, matte * cover);
}
