#version 420 core
// Merges A over B, or by any other of the operations. u_a_channels, u_b_channels: 1 for the channels
// of A and B that take part, 0 for those that count as 0; u_out: 1 for the channels that are written,
// B shows in the others; u_mix: how much of the result, between B and it; u_mask_channel: the channel
// of u_mask that multiplies it; u_invert_mask: 1 takes 1 - mask.
// Defined by the host, because drivers that draw in software would compute all operations for each
// pixel: OPERATION, its number; MASKED, whether u_mask counts; ALPHA_MASKING 1 keeps the operation to
// where both images are:
//   colour A(1 - b) + B(1 - a) + ab f(A/a, B/b), alpha a + b - ab
#include "image.glsl"
#include "operations.glsl"

layout(location = 0) out vec4 o_color;
uniform sampler2D u_a;
uniform vec4 u_a_window;
uniform sampler2D u_b;
uniform vec4 u_b_window;
uniform sampler2D u_mask;
uniform vec4 u_mask_window;
uniform vec4 u_a_channels;
uniform vec4 u_b_channels;
uniform vec4 u_out;
uniform float u_mix;
uniform float u_mask_channel;
uniform float u_invert_mask;

vec4 plain(vec4 A, vec4 B) {
  vec4 result;
  for (int c = 0; c < 4; ++c) result[c] = merged(OPERATION, A[c], B[c], A.a, B.a);
  return result;
}

vec4 where_both_are(vec4 A, vec4 B) {
  float both = A.a * B.a;
  vec3 result = A.rgb * (1.0 - B.a) + B.rgb * (1.0 - A.a);
  if (both > 0.0)
    for (int c = 0; c < 3; ++c) result[c] += both * merged(OPERATION, A[c] / A.a, B[c] / B.a, A.a, B.a);
  return vec4(result, A.a + B.a - both);
}

void main() {
  vec4 background = read_image(u_b, u_b_window);
  vec4 A = read_image(u_a, u_a_window) * u_a_channels;
  vec4 B = background * u_b_channels;
  vec4 result = ALPHA_MASKING == 1 ? where_both_are(A, B) : plain(A, B);
  float amount = u_mix;
  if (MASKED == 1) {
    float mask = read_image(u_mask, u_mask_window)[int(u_mask_channel + 0.5)];
    amount *= clamp(u_invert_mask > 0.5 ? 1.0 - mask : mask, 0.0, 1.0);
  }
  // Not mix(): where nothing of the result is wanted, its NaN must not come through times 0.
  vec4 part = u_out * amount;
  for (int c = 0; c < 4; ++c)
    o_color[c] = part[c] == 0.0 ? background[c] : part[c] == 1.0 ? result[c] : mix(background[c], result[c], part[c]);
}
