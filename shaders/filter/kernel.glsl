// The kernels of the separable filters. Weight of the pixel k away, relative to the centre's, with
// s = u_size in pixels and t = k / s, for k up to u_radius:
//   u_filter 0  box of width s                         clamp(s / 2 + 1/2 - k, 0, 1)
//            1  triangle of half width s               1 - t
//            2  quadratic B-spline of half width 1.5 s 1 - 4/3 t^2 up to t = 1/2, then 2/3 (3/2 - t)^2
//            3  Gaussian of sigma s / 2, cut at 1.5 s  exp(-2 t^2)
// All are polynomials in k, or a power of one, so one loop without a division serves them all: a
// loop for each would read pixels in vain on hardware that runs both sides of a branch.

uniform float u_size;
uniform float u_radius;
uniform float u_filter;

// The program's own: takes the two pixels at distance k, which weigh the same.
void tap(int k, float weight);

// Calls tap for k = 1, 2, ... as far as the kernel weighs anything: a weight of 0 would still carry
// a NaN from a pixel that the kernel does not reach.
void sweep() {
  float s = u_size, i = 1.0 / s;
  float reach = u_radius, bend = 4096.0;
  bool power = false;
  vec3 near, far = vec3(0.0);
  if (u_filter == 0.0) {
    near = vec3(s * 0.5 + 0.5, -1.0, 0.0);
    reach = min(reach, ceil(near.x) - 1.0);
  } else if (u_filter == 1.0) {
    near = vec3(1.0, -i, 0.0);
    reach = min(reach, ceil(s) - 1.0);
  } else if (u_filter == 2.0) {
    near = vec3(1.0, 0.0, -4.0 / 3.0 * i * i);
    far = vec3(1.5, -2.0 * i, 2.0 / 3.0 * i * i);
    bend = 0.5 * s;
    reach = min(reach, ceil(1.5 * s) - 1.0);
  } else {
    near = vec3(0.0, 0.0, -2.0 * 1.44269504 * i * i);
    power = true;
  }
  int r = whole(reach, 4096);
  for (int n = 1; n <= r; ++n) {
    float k = float(n);
    vec3 c = k <= bend ? near : far;
    float w = c.x + k * (c.y + k * c.z);
    tap(n, power ? exp2(w) : min(w, 1.0));
  }
}
