// One axis of the separable blur: the mean over the kernel's pixels along `axis`, 2 u_radius + 1
// reads. Formula: sum of w_k x_k over the sum of w_k. Stands on image.glsl and kernel.glsl.

ivec2 centre = ivec2(0), step_one = ivec2(0), border = ivec2(0);
vec4 total = vec4(0.0);
float weights = 0.0;

void tap(int k, float weight) {
  ivec2 away = k * step_one;
  total += weight * (texelFetch(u_image, max(centre - away, ivec2(0)), 0) +
                     texelFetch(u_image, min(centre + away, border), 0));
  weights += 2.0 * weight;
}

vec4 blur(float axis) {
  centre = here();
  border = last(u_image);
  step_one = along(axis);
  total = texelFetch(u_image, centre, 0);
  weights = 1.0;
  sweep();
  return total / weights;
}
