#version 420 core
// Values that are no numbers, or infinite. u_show 0: 0 in their place; 1: the mean of the numbers in the
// same channel of the nearest ring of pixels around that has any, up to 16 pixels away, or 0; 2: 1 where
// a pixel has such a value, 0 elsewhere.
#include "image.glsl"

layout(location = 0) out vec4 o_color;
uniform sampler2D u_image;
uniform vec4 u_image_window;
uniform float u_show;

bvec4 is_number(vec4 value) {
  return lessThanEqual(abs(value), vec4(3.4028235e38));
}

// Sum and count of the numbers in a channel of the ring of pixels that is `away` from this one.
vec2 ring(int channel, int away) {
  ivec2 here = ivec2(gl_FragCoord.xy) + ivec2(u_image_window.xy);
  vec2 found = vec2(0.0);
  for (int y = -away; y <= away; ++y) {
    int step = abs(y) == away ? 1 : 2 * away;
    for (int x = -away; x <= away; x += step) {
      ivec2 texel = here + ivec2(x, y);
      if (any(lessThan(texel, ivec2(0))) || any(greaterThanEqual(texel, ivec2(u_image_window.zw)))) continue;
      float value = texelFetch(u_image, texel, 0)[channel];
      if (abs(value) <= 3.4028235e38) found += vec2(value, 1.0);
    }
  }
  return found;
}

float neighbours(int channel) {
  vec2 found = vec2(0.0);
  for (int away = 1; away <= 16 && found.y == 0.0; ++away) found = ring(channel, away);
  return found.y > 0.0 ? found.x / found.y : 0.0;
}

void main() {
  vec4 image = read_image(u_image, u_image_window);
  bvec4 good = is_number(image);
  o_color = mix(vec4(0.0), image, good);
  if (u_show > 1.5) o_color = all(good) ? vec4(0.0) : vec4(1.0);
  if (u_show < 0.5 || u_show > 1.5 || all(good)) return;
  for (int c = 0; c < 4; ++c)
    if (!good[c]) o_color[c] = neighbours(c);
}
