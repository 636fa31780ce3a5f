#version 420 core
// One level of a fill's pyramid: colour and weight of the u_factor by u_factor texels below each cell,
// summed, the weight held to 1 so that near colour keeps its say. u_trust at or above 0 reads an image,
// whose pixels weigh 0 at that alpha and 1 at alpha 1; below 0 it reads the level before.
layout(location = 0) out vec4 o_color;
uniform sampler2D u_image;
uniform float u_factor;
uniform float u_trust;

vec4 weighted(vec4 value) {
  if (u_trust < 0.0) return value;
  if (value.a <= u_trust) return vec4(0.0);
  float weight = min((value.a - u_trust) / (1.0 - u_trust), 1.0);
  return vec4(value.rgb / value.a, 1.0) * weight;
}

void main() {
  int factor = int(u_factor + 0.5);
  ivec2 low = ivec2(gl_FragCoord.xy) * factor;
  ivec2 high = min(low + factor, textureSize(u_image, 0));
  vec4 total = vec4(0.0);
  for (int y = low.y; y < high.y; ++y)
    for (int x = low.x; x < high.x; ++x) total += weighted(texelFetch(u_image, ivec2(x, y), 0));
  o_color = total.a > 1.0 ? total / total.a : total;
}
