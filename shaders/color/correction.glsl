// What colour corrections share. The program defines vec3 corrected(vec3 color); this applies it to
// colour divided by its alpha where u_unpremultiply and u_coverage are 1 (coverage.glsl). Alpha stays.
#include "image.glsl"
#include "coverage.glsl"

layout(location = 0) out vec4 o_color;
uniform sampler2D u_image;
uniform vec4 u_image_window;
uniform float u_unpremultiply;
uniform float u_coverage;

vec3 corrected(vec3 color);

void main() {
  vec4 image = read_image(u_image, u_image_window);
  float cover = divisor(image, u_unpremultiply * u_coverage);
  o_color = vec4(cover == 0.0 ? image.rgb : corrected(image.rgb / cover) * cover, image.a);
}
