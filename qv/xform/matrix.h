#pragma once

#include <qv/export.h>

#include <array>
#include <cstdint>
#include <optional>

namespace qv::xform {

// 2-D transforms as 3x3 matrices, row by row, acting on column vectors (x, y, 1).
using Matrix = std::array<double, 9>;

// Pixels x0 <= x < x1, y0 <= y < y1, as (x0, y0, x1, y1).
using Box = std::array<int64_t, 4>;

// Dense linear algebra comes from the host, which has a tuned library of it anyway: install the
// addresses of its routines once, before any function below or a chain of steps, and before other
// threads start. Integers are 32 bits wide (LP64).
//   solve   LAPACK's dgesv: every argument by address, column by column
//   gemm    cblas_dgemm         gemv  cblas_dgemv
//   fourth  not called; a host that has none of its own passes any routine's address
// Stores all four, null ones too, and returns whether none is null. Externally synchronised.
QV_API bool set_blas(uint64_t solve, uint64_t gemm, uint64_t gemv, uint64_t fourth);

// Whether all four routines are installed. The functions below do not check it themselves.
QV_API bool has_blas();

// Thread-safe once the routines are installed, like all of qv/xform.

// a times b: b is applied first.
QV_API Matrix product(const Matrix& a, const Matrix& b);

// The inverse, or nothing for a matrix that the solver calls singular.
QV_API std::optional<Matrix> inverse(const Matrix& m);

// The smallest pixel box around the image of `box` under `m`, grown by `pad` pixels on every side. Edges
// within 1e-6 of a whole pixel count as on it. Nothing where a corner lies on or behind the horizon
// (its third coordinate is at most 1e-9). Throws std::invalid_argument where the image is no number
// and std::overflow_error for pixels of 9.2e18 and beyond.
QV_API std::optional<Box> h_bbox(const Box& box, const Matrix& m, int64_t pad);

}  // namespace qv::xform
