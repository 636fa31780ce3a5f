// What colour corrections share. The program defines vec3 corrected(vec3 color); this applies it to
// colour divided by its alpha (u_unpremultiply 1; colour without coverage is left alone then), and
// blends by u_mix and, with u_masked 1, by the alpha of u_mask. Alpha stays.
#include "image.glsl"

layout(location = 0) out vec4 o_color;
uniform sampler2D u_image;
uniform vec4 u_image_window;
uniform sampler2D u_mask;
uniform vec4 u_mask_window;
uniform float u_masked;
uniform float u_mix;
uniform float u_unpremultiply;

vec3 corrected(vec3 color);

void main() {
  vec4 image = read_image(u_image, u_image_window);
  float amount = u_masked > 0.5 ? u_mix * clamp(read_image(u_mask, u_mask_window).a, 0.0, 1.0) : u_mix;
  vec3 result = u_unpremultiply < 0.5 ? corrected(image.rgb)
                : image.a > 0.0       ? corrected(image.rgb / image.a) * image.a
                                      : image.rgb;
  o_color = vec4(amount == 1.0 ? result : mix(image.rgb, result, amount), image.a);
}
