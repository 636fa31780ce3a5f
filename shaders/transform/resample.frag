#version 420 core
// The image seen through a projective map, filtered as it is, premultiplied, so that its edges meet
// transparent black without fringes. u_row_x, u_row_y, u_row_w: the rows of the matrix from this
// target's pixels to the image's texels. u_clip: left, top, right and bottom of what is drawn, in the
// target's pixels. u_filter: 0 nearest, 1 bilinear, 2 Catmull-Rom. u_weight multiplies the result.
//
// Where a pixel covers more than one and a half texels each way, the means of up to 16 x 16 bilinear
// samples stand for its area; nearest stays one texel.
layout(location = 0) out vec4 o_color;
uniform sampler2D u_image;
uniform vec3 u_row_x;
uniform vec3 u_row_y;
uniform vec3 u_row_w;
uniform vec4 u_clip;
uniform float u_filter;
uniform float u_weight;

const float most_samples = 16.0;

vec4 texel(ivec2 at, ivec2 size) {
  bool outside = any(lessThan(at, ivec2(0))) || any(greaterThanEqual(at, size));
  return outside ? vec4(0.0) : texelFetch(u_image, at, 0);
}

vec4 bilinear(vec2 position, ivec2 size) {
  vec2 low = floor(position - 0.5);
  vec2 part = position - 0.5 - low;
  ivec2 at = ivec2(low);
  // A texel that is met exactly comes through alone, whatever its neighbours are.
  if (part == vec2(0.0)) return texel(at, size);
  return mix(mix(texel(at, size), texel(at + ivec2(1, 0), size), part.x),
             mix(texel(at + ivec2(0, 1), size), texel(at + ivec2(1, 1), size), part.x), part.y);
}

vec4 weights(float t) {
  return vec4(t * (-0.5 + t * (1.0 - 0.5 * t)), 1.0 + t * t * (-2.5 + 1.5 * t),
              t * (0.5 + t * (2.0 - 1.5 * t)), t * t * (-0.5 + 0.5 * t));
}

vec4 cubic(vec2 position, ivec2 size) {
  vec2 low = floor(position - 0.5);
  vec2 part = position - 0.5 - low;
  ivec2 first = ivec2(low) - 1;
  if (part == vec2(0.0)) return texel(first + 1, size);
  // Outside the image a column or row weighs nothing.
  ivec4 columns = first.x + ivec4(0, 1, 2, 3);
  ivec4 rows = first.y + ivec4(0, 1, 2, 3);
  vec4 across = weights(part.x) * vec4(greaterThanEqual(columns, ivec4(0))) * vec4(lessThan(columns, ivec4(size.x)));
  vec4 down = weights(part.y) * vec4(greaterThanEqual(rows, ivec4(0))) * vec4(lessThan(rows, ivec4(size.y)));
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

vec3 mapped(vec2 pixel) {
  vec3 place = vec3(pixel, 1.0);
  return vec3(dot(u_row_x, place), dot(u_row_y, place), dot(u_row_w, place));
}

vec4 mean(ivec2 count, ivec2 size) {
  vec4 total = vec4(0.0);
  for (int j = 0; j < count.y; ++j) {
    for (int i = 0; i < count.x; ++i) {
      vec2 part = (vec2(i, j) + 0.5) / vec2(count) - 0.5;
      vec3 place = mapped(gl_FragCoord.xy + part);
      if (place.z > 0.0) total += bilinear(place.xy / place.z, size);
    }
  }
  return total / float(count.x * count.y);
}

void main() {
  o_color = vec4(0.0);
  vec2 pixel = gl_FragCoord.xy;
  if (any(lessThan(pixel, u_clip.xy)) || any(greaterThan(pixel, u_clip.zw))) return;
  vec3 place = mapped(pixel);
  if (place.z <= 0.0) return;  // behind the horizon
  vec2 position = place.xy / place.z;
  ivec2 size = textureSize(u_image, 0);

  // How the position moves, a pixel to the side and a pixel down.
  vec2 across = (vec2(u_row_x.x, u_row_y.x) - position * u_row_w.x) / place.z;
  vec2 down = (vec2(u_row_x.y, u_row_y.y) - position * u_row_w.y) / place.z;
  vec2 margin = 2.0 + abs(across) + abs(down);
  if (any(lessThan(position, -margin)) || any(greaterThan(position, vec2(size) + margin))) return;

  ivec2 count = ivec2(clamp(floor(vec2(length(across), length(down)) + 0.5), 1.0, most_samples));
  vec4 value;
  if (u_filter < 0.5) value = texel(ivec2(floor(position)), size);
  else if (count != ivec2(1)) value = mean(count, size);
  else if (u_filter < 1.5) value = bilinear(position, size);
  else value = cubic(position, size);
  o_color = value * u_weight;
}
