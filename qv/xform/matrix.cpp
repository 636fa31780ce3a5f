#include <qv/xform/integers.h>
#include <qv/xform/matrix.h>
#include <qv/xform/routines.h>

#include <cmath>
#include <limits>

namespace qv::xform {

namespace {

Routines installed;

template <class Routine>
Routine* routine_at(uint64_t address) {
  // NOLINTNEXTLINE(performance-no-int-to-ptr): addresses are how hosts of any language pass routines.
  return reinterpret_cast<Routine*>(static_cast<std::uintptr_t>(address));
}

Matrix transposed(const Matrix& m) {
  return {m[0], m[3], m[6], m[1], m[4], m[7], m[2], m[5], m[8]};
}

// Holds the sum of any two 64-bit integers.
__extension__ using Wide = __int128;

// `edge` moved by `pad`, which may be anything; out of range like any other pixel.
int64_t padded(double edge, Wide pad) {
  const Wide moved = checked_integer(edge) + pad;
  checked_integer(static_cast<double>(moved));
  return static_cast<int64_t>(moved);
}

// The range of one coordinate over the corners; a NaN stays in it, to be reported.
struct Extent {
  double least;
  double most;
  void add(double x) {
    least = x < least || std::isnan(x) ? x : least;
    most = x > most || std::isnan(x) ? x : most;
  }
};

}  // namespace

bool set_blas(uint64_t solve, uint64_t gemm, uint64_t gemv, uint64_t fourth) {
  installed.solve = routine_at<Solve>(solve);
  installed.gemm = routine_at<Gemm>(gemm);
  installed.gemv = routine_at<Gemv>(gemv);
  installed.fourth = routine_at<const void>(fourth);
  return has_blas();
}

bool has_blas() {
  return installed.solve != nullptr && installed.gemm != nullptr && installed.gemv != nullptr &&
         installed.fourth != nullptr;
}

const Routines& routines() {
  return installed;
}

bool solve(int32_t n, int32_t right_sides, double* a, double* b) {
  std::array<int32_t, 8> pivots{};
  int32_t info = 0;
  installed.solve(&n, &right_sides, a, &n, pivots.data(), b, &n, &info);
  return info == 0;
}

std::array<double, 3> apply(const Matrix& m, double x, double y) {
  const std::array<double, 3> point{x, y, 1.0};
  std::array<double, 3> image{};
  installed.gemv(row_major, as_is, 3, 3, 1.0, m.data(), 3, point.data(), 1, 0.0, image.data(), 1);
  return image;
}

Matrix product(const Matrix& a, const Matrix& b) {
  Matrix c{};
  installed.gemm(row_major, as_is, as_is, 3, 3, 3, 1.0, a.data(), 3, b.data(), 3, 0.0, c.data(), 3);
  return c;
}

std::optional<Matrix> inverse(const Matrix& m) {
  Matrix columns = transposed(m);
  Matrix solution{1, 0, 0, 0, 1, 0, 0, 0, 1};
  if (!solve(3, 3, columns.data(), solution.data())) {
    return std::nullopt;
  }
  return transposed(solution);
}

std::optional<Box> h_bbox(const Box& box, const Matrix& m, int64_t pad) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  Extent across{infinity, -infinity};
  Extent down{infinity, -infinity};
  const auto [x0, y0, x1, y1] = box;
  for (const int64_t y : {y0, y1}) {
    for (const int64_t x : {x0, x1}) {
      const auto [px, py, w] = apply(m, static_cast<double>(x), static_cast<double>(y));
      if (w <= 1e-9) {
        return std::nullopt;
      }
      across.add(px / w);
      down.add(py / w);
    }
  }
  return Box{padded(std::floor(across.least + 1e-6), -Wide{pad}),
             padded(std::floor(down.least + 1e-6), -Wide{pad}), padded(std::ceil(across.most - 1e-6), pad),
             padded(std::ceil(down.most - 1e-6), pad)};
}

}  // namespace qv::xform
