#version 420 core
// Blurs an image along the edges of a matte. u_image: the image; u_blur: its blur, of the same size;
// u_matte: the matte, read at the same texel; u_matte_ch: its channel, 0 red to 3 alpha; u_edge_mult:
// how strongly a difference counts as an edge; u_tint, u_brightness: factors for the blurred colour;
// u_amount_only 1 shows the edge alone.
// Formula: edge = clamp(u_edge_mult * (largest - smallest of the matte's 3 x 3 pixels), 0, 1); result
// mix(image, blur * u_tint * u_brightness, edge), alpha mix(image, blur, edge).

#include "image.glsl"

uniform sampler2D u_blur;
uniform sampler2D u_matte;
uniform float u_matte_ch;
uniform float u_edge_mult;
uniform vec3 u_tint;
uniform float u_brightness;
uniform float u_amount_only;

void main() {
  int channel = whole(u_matte_ch, 3);
  float least = 3.4e38, most = -3.4e38;
  for (int y = -1; y <= 1; ++y)
    for (int x = -1; x <= 1; ++x) {
      float value = read(u_matte, here() + ivec2(x, y))[channel];
      least = min(least, value);
      most = max(most, value);
    }
  float edge = clamp(u_edge_mult * (most - least), 0.0, 1.0);
  vec4 image = texelFetch(u_image, here(), 0);
  vec4 blur = texelFetch(u_blur, here(), 0);
  blur.rgb *= u_tint * u_brightness;
  if (edge > 0.0) image = mix(image, blur, edge);  // away from edges a NaN in the blur stays out
  o_color = u_amount_only > 0.5 ? vec4(edge) : image;
}
