// The filled level of a fill's pyramid that lies above this texel, its cells u_factor texels wide:
// a quadratic B-spline over 3 by 3 cells, so that the cells do not show.
uniform sampler2D u_above;
uniform float u_factor;

vec3 spline(float t) {
  return vec3(0.5 * (0.5 - t) * (0.5 - t), 0.75 - t * t, 0.5 * (0.5 + t) * (0.5 + t));
}

vec4 above() {
  vec2 place = gl_FragCoord.xy / u_factor;
  ivec2 cell = ivec2(floor(place));
  vec3 across = spline(place.x - float(cell.x) - 0.5);
  vec3 down = spline(place.y - float(cell.y) - 0.5);
  ivec2 last = textureSize(u_above, 0) - 1;
  vec4 total = vec4(0.0);
  for (int j = 0; j < 3; ++j)
    for (int i = 0; i < 3; ++i)
      total += across[i] * down[j] * texelFetch(u_above, clamp(cell + ivec2(i, j) - 1, ivec2(0), last), 0);
  return total;
}
