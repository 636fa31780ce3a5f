// What colour corrections share. The program defines vec3 corrected(vec3 color); this applies it to
// colour divided by its alpha where u_unpremultiply and u_coverage are 1 (coverage.glsl), and blends by
// u_mix and, with u_masked 1, by channel u_mask_channel of u_mask. Alpha stays.
#include "image.glsl"
#include "coverage.glsl"

layout(location = 0) out vec4 o_color;
uniform sampler2D u_image;
uniform vec4 u_image_window;
uniform sampler2D u_mask;
uniform vec4 u_mask_window;
uniform float u_masked;
uniform float u_mask_channel;
uniform float u_mix;
uniform float u_unpremultiply;
uniform float u_coverage;

vec3 corrected(vec3 color);

void main() {
  vec4 image = read_image(u_image, u_image_window);
  float mask = read_image(u_mask, u_mask_window)[int(u_mask_channel + 0.5)];
  float amount = u_masked > 0.5 ? u_mix * clamp(mask, 0.0, 1.0) : u_mix;
  float cover = divisor(image, u_unpremultiply * u_coverage);
  vec3 result = cover == 0.0 ? image.rgb : corrected(image.rgb / cover) * cover;
  o_color = vec4(amount == 1.0 ? result : mix(image.rgb, result, amount), image.a);
}
