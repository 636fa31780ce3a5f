// One axis of the separable blur: the mean over the kernel's pixels along `axis`, 2 u_radius + 1
// reads. Formula: sum of w_k x_k over the sum of w_k. Stands on image.glsl, kernel.glsl and texel.glsl.

// Places of texels, scaled as texel() wants them.
vec2 centre = vec2(0.0), step_one = vec2(0.0);
vec4 total = vec4(0.0);
float weights = 0.0;

void tap(int k, float weight) {
  vec2 away = float(k) * step_one;
  total += weight * (texel(u_image, centre - away) + texel(u_image, centre + away));
  weights += 2.0 * weight;
}

vec4 blur(float axis) {
  vec2 scale = texel_scale(u_image);
  centre = gl_FragCoord.xy * scale;
  step_one = vec2(along(axis)) * scale;
  total = texel(u_image, centre);
  weights = 1.0;
  sweep();
  return total / weights;
}
