// The kernels of the separable filters. Weight of the pixel k away, relative to the centre's, with
// s = u_size in pixels and t = k / s, for k up to u_radius:
//   u_filter 0  box of width s                         clamp(s / 2 + 1/2 - k, 0, 1)
//            1  triangle of half width s               1 - t
//            2  quadratic B-spline of half width 1.5 s 1 - 4/3 t^2 up to t = 1/2, then 2/3 (3/2 - t)^2
//            3  Gaussian of sigma s / 2, cut at 1.5 s  exp(-2 t^2)
// The pieces are polynomials and one recurrence, so that no tap pays for a division or a power.

uniform float u_size;
uniform float u_radius;
uniform float u_filter;

// The program's own: takes the two pixels at distance k, which weigh the same.
void tap(int k, float weight);

void polynomial(int first, int final, vec3 c) {
  for (int k = first; k <= final; ++k) tap(k, c.x + float(k) * (c.y + float(k) * c.z));
}

// exp2(g k^2) from its ratio d to the weight before, which itself grows by q. Rounding builds up
// with the square of the steps, so every sixteenth weight is computed afresh.
void gaussian(int final, float g) {
  float q = exp2(2.0 * g);
  for (int start = 1; start <= final; start += 16) {
    float w = exp2(g * float(start * start));
    float d = exp2(g * float(2 * start + 1));
    int stop = min(start + 15, final);
    for (int k = start; k <= stop; ++k) {
      tap(k, w);
      w *= d;
      d *= q;
    }
  }
}

// Calls tap for k = 1, 2, ... as far as the kernel weighs anything: a weight of 0 would still carry
// a NaN from a pixel that the kernel does not reach.
void sweep() {
  float s = u_size, i = 1.0 / u_size;
  if (u_filter == 0.0) {
    int r = whole(u_radius, 4096);
    float end = min(s * 0.5 + 0.5 - float(r), 1.0);
    polynomial(1, r - 1, vec3(1.0, 0.0, 0.0));
    if (r > 0 && end > 0.0) tap(r, end);
  } else if (u_filter == 1.0) {
    polynomial(1, whole(min(u_radius, ceil(s) - 1.0), 4096), vec3(1.0, -i, 0.0));
  } else if (u_filter == 2.0) {
    int r = whole(min(u_radius, ceil(1.5 * s) - 1.0), 4096);
    int bend = whole(0.5 * s, r);
    polynomial(1, bend, vec3(1.0, 0.0, -4.0 / 3.0 * i * i));
    polynomial(bend + 1, r, vec3(1.5, -2.0 * i, 2.0 / 3.0 * i * i));
  } else {
    gaussian(whole(u_radius, 4096), -2.0 * 1.44269504 * i * i);
  }
}
