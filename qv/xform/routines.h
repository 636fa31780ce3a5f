#pragma once

#include <qv/xform/matrix.h>

#include <array>
#include <cstdint>

// The host's numeric routines as this room calls them.
namespace qv::xform {

using Solve = void(const std::int32_t* n, const std::int32_t* right_sides, double* a, const std::int32_t* lda,
                   std::int32_t* pivots, double* b, const std::int32_t* ldb, std::int32_t* info);
using Gemm = void(std::int32_t order, std::int32_t transpose_a, std::int32_t transpose_b, std::int32_t m,
                  std::int32_t n, std::int32_t k, double alpha, const double* a, std::int32_t lda,
                  const double* b, std::int32_t ldb, double beta, double* c, std::int32_t ldc);
using Gemv = void(std::int32_t order, std::int32_t transpose, std::int32_t m, std::int32_t n, double alpha,
                  const double* a, std::int32_t lda, const double* x, std::int32_t incx, double beta,
                  double* y, std::int32_t incy);

// What set_blas stored.
struct Routines {
  Solve* solve = nullptr;
  Gemm* gemm = nullptr;
  Gemv* gemv = nullptr;
  const void* fourth = nullptr;
};
const Routines& routines();

// CBLAS's names for the row-major order and for a matrix taken as it is.
constexpr std::int32_t row_major = 101;
constexpr std::int32_t as_is = 111;

// Solves a x = b for n unknowns; `a` (n x n) and `b` (n x right_sides) column by column, both
// overwritten, the solution in `b`. False for a singular `a`. At most 8 unknowns.
bool solve(std::int32_t n, std::int32_t right_sides, double* a, double* b);

// m (x, y, 1).
std::array<double, 3> apply(const Matrix& m, double x, double y);

}  // namespace qv::xform
