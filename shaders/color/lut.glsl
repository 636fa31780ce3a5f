// Lookup tables, interpolated here and not by the texture unit: that one blends with as little as 8
// bits of a weight, which shows as steps in smooth colour. Coordinates are those of texture(): texel
// centres lie at (i + 0.5) / size, and beyond the outer centres the outer texels go on.

// Between the two texels of a row. Longer tables stand in several rows, each of which ends with the
// texel that the next begins with, so nothing is blended across rows. Beyond the last row is the last
// texel: generated text asks there for the end of a table that fills its rows.
vec4 sample_lut1d(sampler2D lut, vec2 coordinate) {
  ivec2 size = textureSize(lut, 0);
  int row = int(coordinate.y * float(size.y));
  float place = row < size.y ? clamp(coordinate.x * float(size.x) - 0.5, 0.0, float(size.x - 1)) : float(size.x - 1);
  row = clamp(row, 0, size.y - 1);
  int left = int(place);
  int right = min(left + 1, size.x - 1);
  return mix(texelFetch(lut, ivec2(left, row), 0), texelFetch(lut, ivec2(right, row), 0), place - float(left));
}

vec4 sample_lut1d(sampler2D lut, float coordinate) {
  return sample_lut1d(lut, vec2(coordinate, 0.5));
}

// Between the eight texels around.
vec4 qv_lut3d_trilinear(sampler3D lut, vec3 coordinate) {
  ivec3 size = textureSize(lut, 0);
  vec3 place = clamp(coordinate * vec3(size) - 0.5, vec3(0.0), vec3(size - 1));
  ivec3 low = ivec3(place);
  ivec3 high = min(low + 1, size - 1);
  vec3 t = place - vec3(low);
  vec4 a = mix(texelFetch(lut, ivec3(low.x, low.y, low.z), 0), texelFetch(lut, ivec3(high.x, low.y, low.z), 0), t.x);
  vec4 b = mix(texelFetch(lut, ivec3(low.x, high.y, low.z), 0), texelFetch(lut, ivec3(high.x, high.y, low.z), 0), t.x);
  vec4 c = mix(texelFetch(lut, ivec3(low.x, low.y, high.z), 0), texelFetch(lut, ivec3(high.x, low.y, high.z), 0), t.x);
  vec4 d = mix(texelFetch(lut, ivec3(low.x, high.y, high.z), 0), texelFetch(lut, ivec3(high.x, high.y, high.z), 0), t.x);
  return mix(mix(a, b, t.y), mix(c, d, t.y), t.z);
}
