// One axis of the separable blur: the mean over the kernel's pixels along `axis`, 2 u_radius + 1
// reads. Formula: sum of w_k x_k over the sum of w_k. Stands on image.glsl, kernel.glsl and texel.glsl.
//
// A host that defines PIXELS as more than 1 binds the target to image unit 0 and draws as many times
// fewer fragments. Each then gives PIXELS neighbours along the axis, which share their reads: drivers
// that draw in software spend most of a blur on them. The same products are added in the same order.
// In the vertical pass FOLD fragments above each other, or as many as the image has rows, give columns
// that stand side by side, so that what is drawn together is stored together.

#ifndef PIXELS
#define PIXELS 1
#else
layout(rgba32f, binding = 0) writeonly uniform image2D u_target;
#endif

// Places of texels, scaled as texel() wants them.
vec2 first = vec2(0.0), step_one = vec2(0.0);
// For each pixel the ones k before it and k behind it.
vec4 before[PIXELS], behind[PIXELS], total[PIXELS];
float weights = 1.0;

vec4 texel_at(int k) {
  return texel(u_image, first + float(k) * step_one);
}

void tap(int k, float weight) {
  for (int i = PIXELS - 1; i > 0; --i) before[i] = before[i - 1];
  for (int i = 1; i < PIXELS; ++i) behind[i - 1] = behind[i];
  before[0] = texel_at(-k);
  behind[PIXELS - 1] = texel_at(k + PIXELS - 1);
  for (int i = 0; i < PIXELS; ++i) total[i] += weight * (before[i] + behind[i]);
  weights += 2.0 * weight;
}

// The first pixel that the fragment gives.
ivec2 first_pixel(float axis) {
#if PIXELS > 1
  if (axis < 0.5) return here() * ivec2(PIXELS, 1);
  int fold = min(FOLD, textureSize(u_image, 0).y);
  return ivec2(here().x * fold + here().y % fold, here().y / fold * PIXELS);
#else
  return here();
#endif
}

void blur(float axis) {
  ivec2 one = along(axis), place = first_pixel(axis);
  vec2 scale = texel_scale(u_image);
  first = (vec2(place) + 0.5) * scale;
  step_one = vec2(one) * scale;
  for (int i = 0; i < PIXELS; ++i) before[i] = behind[i] = total[i] = texel_at(i);
  sweep();
#if PIXELS > 1
  for (int i = 0; i < PIXELS; ++i) imageStore(u_target, place + i * one, total[i] / weights);
#else
  o_color = total[0] / weights;
#endif
}
