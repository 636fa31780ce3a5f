// What the programs share that see an image through a projective map. They filter it as it is,
// premultiplied, so that its edges meet transparent black without fringes. u_row_x, u_row_y, u_row_w:
// the rows of the matrix from this target's pixels to the image's texels. u_clip: left, top, right and
// bottom of what is drawn, in the target's pixels. u_weight multiplies the result.
//
// A filter a program, and few branches: processors that draw in software take all sides of each.
#include "texel.glsl"

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
  vec2 size = vec2(textureSize(u_image, 0));
  vec2 low = floor(position - 0.5);
  vec2 part = position - 0.5 - low;
  vec4 at = vec4(low + 0.5, low + 1.5);
  vec4 weight = vec4(1.0 - part, part) * vec4(greaterThan(at, vec4(0.0))) * vec4(lessThan(at, size.xyxy));
  at = clamp(at, vec4(0.5), size.xyxy - 0.5) * texel_scale(u_image).xyxy;
  return (texel(u_image, at.xy) * weight.x + texel(u_image, at.zy) * weight.z) * weight.y +
         (texel(u_image, at.xw) * weight.x + texel(u_image, at.zw) * weight.z) * weight.w;
}

// Catmull-Rom's weights of four texels, t beyond the second.
vec4 catmull_rom(float t) {
  return vec4(t * (-0.5 + t * (1.0 - 0.5 * t)), 1.0 + t * t * (-2.5 + 1.5 * t),
              t * (0.5 + t * (2.0 - 1.5 * t)), t * t * (-0.5 + 0.5 * t));
}

vec4 inside(vec4 at, float size) {
  return vec4(greaterThan(at, vec4(0.0))) * vec4(lessThan(at, vec4(size)));
}

vec4 row(vec4 columns, float y, vec4 across) {
  return texel(u_image, vec2(columns.x, y)) * across.x + texel(u_image, vec2(columns.y, y)) * across.y +
         texel(u_image, vec2(columns.z, y)) * across.z + texel(u_image, vec2(columns.w, y)) * across.w;
}

vec4 cubic(vec2 position) {
  vec2 size = vec2(textureSize(u_image, 0));
  vec2 low = floor(position - 0.5);
  vec2 part = position - 0.5 - low;
  vec4 columns = low.x + vec4(-0.5, 0.5, 1.5, 2.5);
  vec4 rows = low.y + vec4(-0.5, 0.5, 1.5, 2.5);
  vec4 across = catmull_rom(part.x) * inside(columns, size.x);
  vec4 down = catmull_rom(part.y) * inside(rows, size.y);
  vec2 scale = texel_scale(u_image);
  columns = clamp(columns, 0.5, size.x - 0.5) * scale.x;
  rows = clamp(rows, 0.5, size.y - 0.5) * scale.y;
  return row(columns, rows.x, across) * down.x + row(columns, rows.y, across) * down.y +
         row(columns, rows.z, across) * down.z + row(columns, rows.w, across) * down.w;
}
