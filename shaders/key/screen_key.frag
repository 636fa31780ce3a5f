#version 420 core
// Keys a coloured screen by colour difference. With the screen's channel s (u_selector) and a mean m of
// the other two (u_weights), the excess of a colour is e = s - m. A pixel is taken for a foreground
// without excess in front of the screen S, C = F + (1 - alpha) S, so that
//   alpha = 1 - e(C) / e(S), held to 0 to 1, and F = C - (1 - alpha) S.
// A screen in shadow, k S, thus leaves no colour, only the shadow's alpha 1 - k.
// u_clip: alpha that becomes 0 and alpha that becomes 1. u_core: where the foreground is solid;
// u_garbage: where nothing is kept. u_despill 0 takes the plate times the matte instead of F.
// u_output: 0 the foreground, premultiplied, 1 the matte, 2 the plate without spill, not keyed.
// u_coverage 0: the plate's alpha is no coverage; nothing is divided by it. u_masks: the channels of
// u_core and u_garbage that count.
#include "image.glsl"

layout(location = 0) out vec4 o_color;
uniform sampler2D u_image;
uniform vec4 u_image_window;
uniform sampler2D u_core;
uniform vec4 u_core_window;
uniform sampler2D u_garbage;
uniform vec4 u_garbage_window;
uniform vec3 u_screen;
uniform vec3 u_selector;
uniform vec3 u_weights;
uniform vec2 u_clip;
uniform float u_despill;
uniform float u_output;
uniform float u_coverage;
uniform vec2 u_masks;

float excess(vec3 color) {
  return dot(color, u_selector) - dot(color, u_weights);
}

// Alpha before the clip. A screen without excess keys nothing.
float keyed(vec3 color) {
  float screen = excess(u_screen);
  return screen > 0.0 ? clamp(1.0 - excess(color) / screen, 0.0, 1.0) : 1.0;
}

// The colour that belongs to a clipped matte. Less alpha: less of the foreground F. More alpha: on the
// way from F to all of the plate, without its spill, which is what a solid pixel shows.
vec3 foreground(vec3 color, vec3 solid, float alpha, float matte) {
  vec3 front = max(color - (1.0 - alpha) * u_screen, 0.0);
  if (matte <= alpha) return alpha > 0.0 ? front * (matte / alpha) : vec3(0.0);
  return mix(front, solid, (matte - alpha) / (1.0 - alpha));
}

void main() {
  vec4 image = read_image(u_image, u_image_window);
  float cover = u_coverage > 0.5 ? image.a : 1.0;
  vec3 color = cover > 0.0 ? image.rgb / cover : image.rgb;
  float alpha = keyed(color);
  float matte = u_clip.x < u_clip.y ? clamp((alpha - u_clip.x) / (u_clip.y - u_clip.x), 0.0, 1.0)
                                    : alpha > u_clip.x ? 1.0 : 0.0;
  float core = clamp(read_image(u_core, u_core_window)[int(u_masks.x + 0.5)], 0.0, 1.0);
  float garbage = clamp(read_image(u_garbage, u_garbage_window)[int(u_masks.y + 0.5)], 0.0, 1.0);
  matte = max(matte, core) * (1.0 - garbage);
  vec3 solid = color - u_despill * max(excess(color), 0.0) * u_selector;
  if (u_output < 0.5)
    o_color = vec4(mix(color * matte, foreground(color, solid, alpha, matte), u_despill), matte) * cover;
  else if (u_output < 1.5) o_color = vec4(matte * cover);
  else o_color = vec4(solid * cover, image.a);
}
