#version 420 core
// Inclusive sums along each row, beginning anew at every u_tile columns: texel x holds the sum of the
// pixels from the last multiple of u_tile up to x. u_image: any image; what is not finite counts as
// 0. At most u_tile reads. Short runs keep the sums' rounding, and any damage, within a tile.

#include "image.glsl"
#include "finite.glsl"

uniform float u_tile;

void main() {
  ivec2 at = here();
  int tile = max(whole(u_tile, 4096), 1);
  vec4 total = vec4(0.0);
  int x = at.x - at.x % tile;
  do total += finite(texelFetch(u_image, ivec2(x, at.y), 0));
  while (++x <= at.x);
  o_color = total;
}
