// What the programs share that see an image through a projective map. They filter it as it is,
// premultiplied, so that its edges meet transparent black without fringes. u_row_x, u_row_y, u_row_w:
// the rows of the matrix from this target's pixels to the image's texels. u_clip: left, top, right and
// bottom of what is drawn, in the target's pixels. u_weight multiplies the result.
//
// A filter a program, and few branches: processors that draw in software take all sides of each.
layout(location = 0) out vec4 o_color;
uniform sampler2D u_image;
uniform vec3 u_row_x;
uniform vec3 u_row_y;
uniform vec3 u_row_w;
uniform vec4 u_clip;
uniform float u_weight;

// The texel position under a place of the target, and what is above 0 in front of the horizon.
vec3 mapped(vec2 pixel) {
  vec3 place = vec3(pixel, 1.0);
  float w = dot(u_row_w, place);
  return vec3(vec2(dot(u_row_x, place), dot(u_row_y, place)) / w, w);
}

void show(vec4 value, float front) {
  vec2 pixel = gl_FragCoord.xy;
  bool clipped = any(lessThan(pixel, u_clip.xy)) || any(greaterThan(pixel, u_clip.zw));
  o_color = clipped || front <= 0.0 ? vec4(0.0) : value * u_weight;
}

vec4 nearest(vec2 position) {
  ivec2 size = textureSize(u_image, 0);
  ivec2 at = ivec2(floor(position));
  bool outside = any(lessThan(at, ivec2(0))) || any(greaterThanEqual(at, size));
  return outside ? vec4(0.0) : texelFetch(u_image, at, 0);
}

// Outside the image a column or row weighs nothing.
vec4 bilinear(vec2 position) {
  ivec2 size = textureSize(u_image, 0);
  vec2 low = floor(position - 0.5);
  vec2 part = position - 0.5 - low;
  ivec4 at = ivec4(low, low + 1.0);
  vec4 weight = vec4(1.0 - part, part) * vec4(greaterThanEqual(at, ivec4(0))) * vec4(lessThan(at, size.xyxy));
  at = clamp(at, ivec4(0), size.xyxy - 1);
  return (texelFetch(u_image, at.xy, 0) * weight.x + texelFetch(u_image, at.zy, 0) * weight.z) * weight.y +
         (texelFetch(u_image, at.xw, 0) * weight.x + texelFetch(u_image, at.zw, 0) * weight.z) * weight.w;
}

// Catmull-Rom's weights of four texels, t beyond the second.
vec4 catmull_rom(float t) {
  return vec4(t * (-0.5 + t * (1.0 - 0.5 * t)), 1.0 + t * t * (-2.5 + 1.5 * t),
              t * (0.5 + t * (2.0 - 1.5 * t)), t * t * (-0.5 + 0.5 * t));
}

vec4 inside(ivec4 at, int size) {
  return vec4(greaterThanEqual(at, ivec4(0))) * vec4(lessThan(at, ivec4(size)));
}

vec4 cubic(vec2 position) {
  ivec2 size = textureSize(u_image, 0);
  vec2 low = floor(position - 0.5);
  vec2 part = position - 0.5 - low;
  ivec4 columns = int(low.x) + ivec4(-1, 0, 1, 2);
  ivec4 rows = int(low.y) + ivec4(-1, 0, 1, 2);
  vec4 across = catmull_rom(part.x) * inside(columns, size.x);
  vec4 down = catmull_rom(part.y) * inside(rows, size.y);
  columns = clamp(columns, ivec4(0), ivec4(size.x - 1));
  rows = clamp(rows, ivec4(0), ivec4(size.y - 1));
  vec4 total = vec4(0.0);
  for (int j = 0; j < 4; ++j) {
    vec4 row = texelFetch(u_image, ivec2(columns.x, rows[j]), 0) * across.x;
    row += texelFetch(u_image, ivec2(columns.y, rows[j]), 0) * across.y;
    row += texelFetch(u_image, ivec2(columns.z, rows[j]), 0) * across.z;
    row += texelFetch(u_image, ivec2(columns.w, rows[j]), 0) * across.w;
    total += row * down[j];
  }
  return total;
}
