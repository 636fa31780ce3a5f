#pragma once

#include <qv/xform/matrix.h>

#include <array>
#include <cstdint>

// The host's numeric routines as this room calls them.
namespace qv::xform {

using Solve = void(const int32_t* n, const int32_t* right_sides, double* a, const int32_t* lda,
                   int32_t* pivots, double* b, const int32_t* ldb, int32_t* info);
using Gemm = void(int32_t order, int32_t transpose_a, int32_t transpose_b, int32_t m, int32_t n, int32_t k,
                  double alpha, const double* a, int32_t lda, const double* b, int32_t ldb, double beta,
                  double* c, int32_t ldc);
using Gemv = void(int32_t order, int32_t transpose, int32_t m, int32_t n, double alpha, const double* a,
                  int32_t lda, const double* x, int32_t incx, double beta, double* y, int32_t incy);

// What set_blas stored.
struct Routines {
  Solve* solve = nullptr;
  Gemm* gemm = nullptr;
  Gemv* gemv = nullptr;
  const void* fourth = nullptr;
};
const Routines& routines();

// CBLAS's names for the row-major order and for a matrix taken as it is.
constexpr int32_t row_major = 101;
constexpr int32_t as_is = 111;

// Solves a x = b for n unknowns; `a` (n x n) and `b` (n x right_sides) column by column, both
// overwritten, the solution in `b`. False for a singular `a`. At most 8 unknowns.
bool solve(int32_t n, int32_t right_sides, double* a, double* b);

// m (x, y, 1).
std::array<double, 3> apply(const Matrix& m, double x, double y);

}  // namespace qv::xform
