#version 420 core
// A level of a fill's pyramid, completed by the filled level above it, whose cells are u_factor texels
// wide: what the level's own weight leaves open shows the colour from above.
#include "fill_above.glsl"

layout(location = 0) out vec4 o_color;
uniform sampler2D u_image;

void main() {
  vec4 own = texelFetch(u_image, ivec2(gl_FragCoord.xy), 0);
  o_color = own + (1.0 - own.a) * above();
}
