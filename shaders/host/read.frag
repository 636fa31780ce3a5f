#version 420 core
// A decoded image at the render's scale, u_scale at most 1: the mean over the area of the source that
// lies under the pixel, and transparent black outside it. u_source is the source's left and upper
// edge. u_srgb 1 turns the sRGB curve into linear light first, on colour that is not premultiplied
// (u_coverage 1 tells that it is in the file):
//   c / 12.92 for c <= 0.04045, else ((c + 0.055) / 1.055)^2.4
#include "image.glsl"

layout(location = 0) out vec4 o_color;
uniform sampler2D u_image;
uniform float u_scale;
uniform float u_srgb;
uniform float u_coverage;
uniform vec2 u_source;

vec4 linear(vec4 encoded) {
  float alpha = u_coverage > 0.5 && encoded.a > 0.0 ? encoded.a : 1.0;
  vec3 c = encoded.rgb / alpha;
  vec3 low = c / 12.92;
  vec3 high = pow(max(c + 0.055, 0.0) / 1.055, vec3(2.4));
  return vec4(mix(high, low, lessThanEqual(c, vec3(0.04045))) * alpha, encoded.a);
}

vec4 source(ivec2 texel) {
  vec4 value = texelFetch(u_image, texel, 0);
  return u_srgb > 0.5 ? linear(value) : value;
}

void main() {
  // In source texels, rows downwards.
  vec2 centre = knob_position() / u_scale;
  vec2 texel = vec2(centre.x - u_source.x, u_source.y - centre.y);
  vec2 low = max(texel - 0.5 / u_scale, 0.0);
  vec2 high = min(texel + 0.5 / u_scale, vec2(textureSize(u_image, 0)));
  vec4 total = vec4(0.0);
  for (int y = int(floor(low.y)); y < int(ceil(high.y)); ++y) {
    float height = min(high.y, float(y + 1)) - max(low.y, float(y));
    for (int x = int(floor(low.x)); x < int(ceil(high.x)); ++x) {
      float width = min(high.x, float(x + 1)) - max(low.x, float(x));
      total += source(ivec2(x, y)) * (width * height);
    }
  }
  o_color = total * (u_scale * u_scale);
}
