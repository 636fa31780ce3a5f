#version 420 core
// Layers of depth, each out of focus by its own disc, put together from the nearest on. Those behind the
// focus, the sharp one first, cover one another, and so do those in front: what is hidden by a near edge
// shows what is known around it, so what covers is scaled up to all that was there. Where nothing was
// transparent, nothing is. u_factorN: how many times smaller the layers of level N are.
#include "image.glsl"

layout(location = 0) out vec4 o_color;
uniform sampler2D u_image;
uniform vec4 u_image_window;
uniform sampler2D u_levels;
uniform vec4 u_levels_window;
uniform sampler2D u_back1, u_back2, u_back3, u_back4, u_back5;
uniform sampler2D u_front1, u_front2, u_front3, u_front4, u_front5;
uniform sampler2D u_nothing;
uniform float u_factor1, u_factor2, u_factor3, u_factor4, u_factor5;

// A layer under this pixel, between the texels of a smaller one.
vec4 layer(sampler2D image, float factor) {
  ivec2 texel = ivec2(gl_FragCoord.xy) + ivec2(u_image_window.xy);
  if (factor < 1.5) return texelFetch(image, texel, 0);
  vec2 place = (vec2(texel) + 0.5) / factor - 0.5;
  ivec2 low = ivec2(floor(place));
  vec2 t = place - vec2(low);
  ivec2 last = textureSize(image, 0) - 1;
  ivec2 a = clamp(low, ivec2(0), last), b = clamp(low + 1, ivec2(0), last);
  return mix(mix(texelFetch(image, a, 0), texelFetch(image, ivec2(b.x, a.y), 0), t.x),
             mix(texelFetch(image, ivec2(a.x, b.y), 0), texelFetch(image, b, 0), t.x), t.y);
}

// A side of the focus: its picture so far, nearest first, and how much there was of all its layers.
struct Side {
  vec4 seen;
  float all;
};

Side behind(Side side, vec4 next) {
  return Side(side.seen + next * (1.0 - clamp(side.seen.a, 0.0, 1.0)), side.all + next.a);
}

vec4 whole(Side side) {
  return side.seen.a > 0.0 ? side.seen * (min(side.all, 1.0) / side.seen.a) : side.seen;
}

void main() {
  vec4 image = read_image(u_image, u_image_window);
  float level = read_image(u_levels, u_levels_window).r;
  vec4 sharp = image * max(1.0 - abs(level), 0.0);
  Side back = Side(sharp, sharp.a);
  back = behind(back, layer(u_back1, u_factor1));
  back = behind(back, layer(u_back2, u_factor2));
  back = behind(back, layer(u_back3, u_factor3));
  back = behind(back, layer(u_back4, u_factor4));
  back = behind(back, layer(u_back5, u_factor5));
  Side front = Side(vec4(0.0), 0.0);
  front = behind(front, layer(u_front5, u_factor5));
  front = behind(front, layer(u_front4, u_factor4));
  front = behind(front, layer(u_front3, u_factor3));
  front = behind(front, layer(u_front2, u_factor2));
  front = behind(front, layer(u_front1, u_factor1));
  vec4 near = whole(front);
  vec4 both = near + whole(back) * (1.0 - near.a);
  float nothing = max(clamp(layer(u_nothing, u_factor5).r, 0.0, 1.0), 1.0 - image.a);
  o_color = both.a > 0.0 ? both / min(both.a + nothing, 1.0) : both;
}
