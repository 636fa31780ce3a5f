#include <qv/xform/integers.h>
#include <qv/xform/routines.h>
#include <qv/xform/steps.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <span>

namespace qv::xform {

namespace {

using Values = std::span<const double>;

// The two rows of an affine matrix that say something.
using Affine = std::array<double, 6>;

constexpr Matrix identity{1, 0, 0, 0, 1, 0, 0, 0, 1};

// `m` after `a`, in plain operations of a fixed order: results are the same with every host's routines.
Affine after(const Affine& m, const Affine& a) {
  return {m[0] * a[0] + m[1] * a[3], m[0] * a[1] + m[1] * a[4], m[0] * a[2] + m[1] * a[5] + m[2],
          m[3] * a[0] + m[4] * a[3], m[3] * a[1] + m[4] * a[4], m[3] * a[2] + m[4] * a[5] + m[5]};
}

Matrix as_matrix(const Affine& a) {
  return {a[0], a[1], a[2], a[3], a[4], a[5], 0, 0, 1};
}

std::optional<Matrix> inverse_of(const Affine& a) {
  const double det = a[0] * a[4] - a[1] * a[3];
  if (std::abs(det) < 1e-12) {
    return std::nullopt;
  }
  const double i00 = a[4] / det;
  const double i01 = -a[1] / det;
  const double i10 = -a[3] / det;
  const double i11 = a[0] / det;
  return Matrix{i00, i01, -(i00 * a[2] + i01 * a[5]), i10, i11, -(i10 * a[2] + i11 * a[5]), 0, 0, 1};
}

std::optional<Matrix> transform_matrix(Values v) {
  const double skew_x = v[6];
  const double skew_y = v[7];
  const double theta = v[3] * 0.017453292519943295;
  const double c = std::cos(theta);
  const double s = std::sin(theta);

  Affine a{1, 0, -v[9], 0, 1, -v[10]};
  a = after(v[8] == 0 ? Affine{1, skew_x, 0, skew_y, 1 + skew_x * skew_y, 0}
                      : Affine{1 + skew_x * skew_y, skew_x, 0, skew_y, 1, 0},
            a);
  a = after({v[4], 0, 0, 0, v[5], 0}, a);
  a = after({c, -s, 0, s, c, 0}, a);
  a = after({1, 0, v[9] + v[1], 0, 1, v[10] + v[2]}, a);
  return v[11] == 0 ? as_matrix(a) : inverse_of(a);
}

struct Format {
  int64_t width;
  int64_t height;
  double pixel_aspect;
};

// A step's kind or a reformat's type, which nothing may stand in for.
int32_t kind_of(double number) {
  if (!(number > -2147483649.0 && number < 2147483648.0)) {
    throw std::invalid_argument("unknown step kind");
  }
  return static_cast<int32_t>(number);
}

// The format that a reformat of a source of `width` x `height` pixels makes.
Format reformat_format(Values v, int64_t width, int64_t height) {
  __extension__ using Wide = __int128;
  const int64_t one = 1;
  switch (kind_of(v[1])) {
    case reformat_by_scale:
      return {std::max(one, checked_round(static_cast<double>(width) * v[9])),
              std::max(one, checked_round(static_cast<double>(height) * v[10])), 1.0};
    case reformat_to_box: {
      const int64_t box_width = std::max(one, truncated<int64_t>(v[5]));
      if (v[7] != 0) {
        return {box_width, std::max(one, truncated<int64_t>(v[6])), v[8]};
      }
      const auto area = static_cast<double>(Wide{box_width} * height);
      return {box_width, std::max(one, checked_round(area / (static_cast<double>(width) * v[8]))), v[8]};
    }
    default:
      // Not held to one pixel: an empty format is what was asked for.
      return {truncated<int64_t>(v[2]), truncated<int64_t>(v[3]), v[4]};
  }
}

struct Scale {
  double x;
  double y;
};

// How a reformat scales a source of `width` x `height` pixels to its format.
Scale reformat_scale(int32_t resize, double width, double height, const Format& out) {
  const double sx = static_cast<double>(out.width) / width;
  const auto out_height = static_cast<double>(out.height);
  const double filled_height = sx * height * out.pixel_aspect;
  if (resize == resize_fit) {
    resize = out_height < filled_height ? resize_height : resize_width;
  } else if (resize == resize_fill) {
    resize = out_height >= filled_height ? resize_height : resize_width;
  }
  const double sy = out_height / height;
  switch (resize) {
    case resize_width:
      return {sx, sx * out.pixel_aspect};
    case resize_height:
      return {sy / out.pixel_aspect, sy};
    case resize_distort:
      return {sx, sy};
    default:
      return {1, 1};
  }
}

Matrix reformat_matrix(Values v, int64_t& width, int64_t& height) {
  const bool turn = v[15] != 0;
  const int64_t source_width = turn ? height : width;
  const int64_t source_height = turn ? width : height;
  const Format out = reformat_format(v, source_width, source_height);
  const auto w = static_cast<double>(source_width);
  const auto h = static_cast<double>(source_height);
  const Scale scale = reformat_scale(truncated<int32_t>(v[11]), w, h, out);

  // A quarter turn, shifted so that the image stays at positive coordinates.
  Affine b = turn ? Affine{0, -1, w, 1, 0, 0} : Affine{1, 0, 0, 0, 1, 0};
  if (v[14] != 0) {
    b = after({-1, 0, w, 0, 1, 0}, b);
  }
  if (v[13] != 0) {
    b = after({1, 0, 0, 0, -1, h}, b);
  }
  const bool centre = v[12] != 0;
  const double offset_x = centre ? (static_cast<double>(out.width) - w * scale.x) * 0.5 : 0;
  const double offset_y = centre ? (static_cast<double>(out.height) - h * scale.y) * 0.5 : 0;
  width = out.width;
  height = out.height;
  return {b[0] * scale.x,
          b[1] * scale.x,
          b[2] * scale.x + offset_x,
          b[3] * scale.y,
          b[4] * scale.y,
          b[5] * scale.y + offset_y,
          0,
          0,
          1};
}

// The number of point pairs of a corner pin whose length agrees with it.
size_t cornerpin_points(Values v) {
  const int32_t n = v.size() < 3 ? -1 : truncated<int32_t>(v[2]);
  if (n < 0 || v.size() != 4 * static_cast<size_t>(n) + 19) {
    throw std::invalid_argument("cornerpin step: 3 + 4 n + 16 values");
  }
  return static_cast<size_t>(n);
}

// The projective map through four pairs of points: eight unknowns, two equations a pair.
std::optional<Matrix> projective_fit(Values from, Values to) {
  std::array<double, 64> a{};
  std::array<double, 8> h{};
  for (size_t i = 0; i < 4; ++i) {
    const double sx = from[2 * i];
    const double sy = from[2 * i + 1];
    const double dx = to[2 * i];
    const double dy = to[2 * i + 1];
    const std::array<double, 8> for_x{sx, sy, 1, 0, 0, 0, -dx * sx, -dx * sy};
    const std::array<double, 8> for_y{0, 0, 0, sx, sy, 1, -dy * sx, -dy * sy};
    for (size_t column = 0; column < 8; ++column) {
      a[column * 8 + 2 * i] = for_x[column];
      a[column * 8 + 2 * i + 1] = for_y[column];
    }
    h[2 * i] = dx;
    h[2 * i + 1] = dy;
  }
  if (!solve(8, 1, a.data(), h.data())) {
    return std::nullopt;
  }
  return Matrix{h[0], h[1], h[2], h[3], h[4], h[5], h[6], h[7], 1};
}

// The affine map through three pairs of points.
std::optional<Matrix> affine_fit(Values from, Values to) {
  Matrix a{from[0], from[2], from[4], from[1], from[3], from[5], 1, 1, 1};
  std::array<double, 6> x{to[0], to[2], to[4], to[1], to[3], to[5]};
  if (!solve(3, 2, a.data(), x.data())) {
    return std::nullopt;
  }
  return Matrix{x[0], x[1], x[2], x[3], x[4], x[5], 0, 0, 1};
}

// Rotation, one scale and translation through two pairs of points.
std::optional<Matrix> similarity_fit(Values from, Values to) {
  const double x = from[2] - from[0];
  const double y = from[3] - from[1];
  const double u = to[2] - to[0];
  const double v = to[3] - to[1];
  if (std::hypot(x, y) < 1e-12) {
    return std::nullopt;
  }
  // The complex quotient (u + iv) / (x + iy) in Smith's form, whose squares cannot overflow.
  const bool wide = std::abs(x) >= std::abs(y);
  const double r = wide ? y / x : x / y;
  const double den = wide ? x + r * y : y + r * x;
  const double a = (wide ? u + r * v : r * u + v) / den;
  const double b = (wide ? v - r * u : r * v - u) / den;

  Matrix m{a, -b, 0, b, a, 0, 0, 0, 1};
  std::array<double, 2> moved{};
  routines().gemv(row_major, as_is, 2, 2, 1.0, m.data(), 3, from.data(), 1, 0.0, moved.data(), 1);
  m[2] = to[0] - moved[0];
  m[5] = to[1] - moved[1];
  return m;
}

std::optional<Matrix> point_fit(Values from, Values to) {
  switch (from.size() / 2) {
    case 0:
      return identity;
    case 1:
      return Matrix{1, 0, to[0] - from[0], 0, 1, to[1] - from[1], 0, 0, 1};
    case 2:
      return similarity_fit(from, to);
    case 3:
      return affine_fit(from, to);
    default:
      return projective_fit(from, to);
  }
}

std::optional<Matrix> cornerpin_matrix(Values v) {
  const size_t n = cornerpin_points(v);
  const std::optional<Matrix> fit = point_fit(v.subspan(3, 2 * n), v.subspan(3 + 2 * n, 2 * n));
  if (!fit) {
    return std::nullopt;
  }
  const Values t = v.last(16);
  const Matrix pinned = product({t[0], t[1], t[3], t[4], t[5], t[7], t[12], t[13], t[15]}, *fit);
  return v[1] != 0 ? inverse(pinned) : pinned;
}

// What is left of `clip` in a format; where nothing is, the pixel of it that lies nearest the origin.
Box clipped(const Box& clip, int64_t width, int64_t height) {
  const int64_t zero = 0;
  const auto [x0, y0, x1, y1] = clip;
  const Box both{std::max(x0, zero), std::max(y0, zero), std::min(width, x1), std::min(height, y1)};
  if (both[2] > both[0] && both[3] > both[1]) {
    return both;
  }
  const int64_t x = std::min(x1 - 1, both[0]);
  const int64_t y = std::min(y1 - 1, both[1]);
  return {x, y, x + 1, y + 1};
}

}  // namespace

std::optional<Matrix> step_matrix(const std::vector<double>& values, int64_t& width, int64_t& height,
                                  bool& clip_to_format) {
  clip_to_format = false;
  if (values.empty()) {
    throw std::out_of_range("invalid vector subscript");
  }
  switch (kind_of(values[0])) {
    case step_transform:
      if (values.size() != 12) {
        throw std::invalid_argument("transform step: 12 values");
      }
      return transform_matrix(values);
    case step_reformat:
      if (values.size() != 17) {
        throw std::invalid_argument("reformat step: 17 values");
      }
      clip_to_format = values[16] == 0;
      return reformat_matrix(values, width, height);
    case step_corner_pin:
      return cornerpin_matrix(values);
    default:
      throw std::invalid_argument("unknown step kind");
  }
}

Total total(const std::vector<std::vector<double>>& steps, int64_t width, int64_t height) {
  Total result{identity, width, height, std::nullopt};
  for (const std::vector<double>& values : steps) {
    bool clip_to_format = false;
    const std::optional<Matrix> step = step_matrix(values, result.width, result.height, clip_to_format);
    if (!step) {
      result.matrix.reset();
      return result;
    }
    result.matrix = product(*step, *result.matrix);
    if (result.clip) {
      result.clip = h_bbox(*result.clip, *step, 0);
    }
    if (clip_to_format) {
      result.clip = result.clip ? clipped(*result.clip, result.width, result.height)
                                : Box{0, 0, result.width, result.height};
    }
  }
  return result;
}

}  // namespace qv::xform
