// The kernels of the separable filters. Weight of the pixel k away, relative to the centre's, with
// s = u_size in pixels and t = k / s, for k up to u_radius:
//   u_filter 0  box of width s                         clamp(s / 2 + 1/2 - k, 0, 1)
//            1  triangle of half width s               1 - t
//            2  quadratic B-spline of half width 1.5 s 1 - 4/3 t^2 up to t = 1/2, then 2/3 (3/2 - t)^2
//            3  Gaussian of sigma s / 2, cut at 1.5 s  exp(-2 t^2)
// One loop serves them all: with one for each, hardware that masks instead of jumping would read
// pixels in vain.

uniform float u_size;
uniform float u_radius;
uniform float u_filter;

// The program's own: takes the two pixels at distance k, which weigh the same.
void tap(int k, float weight);

// 1 - exp(-x), with all its digits where x is small.
float fall(float x) {
  return x < 0.1 ? x * (1.0 - x * (0.5 - x * (1.0 / 6.0 - x / 24.0))) : 1.0 - exp(-x);
}

// The weight at k, how much is lost on the way to k + 1, and by how much that grows each time: in
// parts of the weight for the Gaussian, whose losses compound, plainly for the others.
vec3 weight_at(float k) {
  float i = 1.0 / u_size, t = k * i;
  if (u_filter == 0.0) return vec3(u_size * 0.5 + 0.5 - k, 1.0, 0.0);
  if (u_filter == 1.0) return vec3(1.0 - t, i, 0.0);
  if (u_filter == 2.0) {
    return t <= 0.5 ? vec3(1.0 - 4.0 / 3.0 * t * t, 4.0 / 3.0 * i * (2.0 * t + i), 8.0 / 3.0 * i * i)
                    : vec3(2.0 / 3.0 * (1.5 - t) * (1.5 - t), 2.0 / 3.0 * i * (3.0 - 2.0 * t - i), -4.0 / 3.0 * i * i);
  }
  return vec3(exp(-2.0 * t * t), fall(2.0 * i * (2.0 * t + i)), fall(4.0 * i * i));
}

// Calls tap for k = 1, 2, ... as far as the kernel weighs anything: a weight of 0 would still carry
// a NaN from a pixel that the kernel does not reach.
void sweep() {
  bool compound = false;
  float reach = 4096.0, bend = 4096.0;
  if (u_filter == 0.0) {
    reach = ceil(u_size * 0.5 + 0.5) - 1.0;
  } else if (u_filter == 1.0) {
    reach = ceil(u_size) - 1.0;
  } else if (u_filter == 2.0) {
    reach = ceil(u_size * 1.5) - 1.0;
    bend = u_size * 0.5;
  } else {
    compound = true;
  }
  int r = whole(min(reach, u_radius), 4096), turn = whole(bend, r);
  if (r < 1) return;
  int k = 1;
  do {
    // Begin afresh at the bend, and every 64 taps, before rounding adds up.
    vec3 w = weight_at(float(k));
    int stop = min(k + 63, k <= turn ? turn : r);
    do {
      tap(k, min(w.x, 1.0));
      w.x -= compound ? w.x * w.y : w.y;
      w.y += compound ? w.z - w.z * w.y : w.z;
    } while (++k <= stop);
  } while (k <= r);
}
