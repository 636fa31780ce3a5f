#include "host/base/linear_algebra.h"

#include <qv/xform/matrix.h>

#include <cstdint>
#include <mutex>

extern "C" {
// NOLINTNEXTLINE(readability-identifier-naming)
void dgesv_(const int* n, const int* columns, double* a, const int* a_rows, int* pivots, double* b,
            const int* b_rows, int* info);
void cblas_dgemm(int order, int turn_a, int turn_b, int m, int n, int k, double alpha, const double* a,
                 int a_rows, const double* b, int b_rows, double beta, double* c, int c_rows);
void cblas_dgemv(int order, int turn, int m, int n, double alpha, const double* a, int a_rows,
                 const double* x, int x_step, double beta, double* y, int y_step);
int openblas_get_num_threads();
void openblas_set_num_threads(int threads);
}

namespace host {
namespace {

// Systems of three unknowns: handing them to other threads takes ten times as long as solving them, and may
// never end in a process that is forked meanwhile. Others of the process go on with as many as they had.
class OneThread {
 public:
  OneThread() : lock_(mutex()), before_(openblas_get_num_threads()) {
    if (before_ != 1) openblas_set_num_threads(1);
  }
  ~OneThread() {
    if (before_ != 1) openblas_set_num_threads(before_);
  }
  OneThread(const OneThread&) = delete;
  OneThread& operator=(const OneThread&) = delete;

 private:
  static std::mutex& mutex() {
    static std::mutex one;
    return one;
  }

  std::lock_guard<std::mutex> lock_;
  int before_;
};

void solve(const int* n, const int* columns, double* a, const int* a_rows, int* pivots, double* b,
           const int* b_rows, int* info) {
  const OneThread one;
  dgesv_(n, columns, a, a_rows, pivots, b, b_rows, info);
}

void gemm(int order, int turn_a, int turn_b, int m, int n, int k, double alpha, const double* a, int a_rows,
          const double* b, int b_rows, double beta, double* c, int c_rows) {
  const OneThread one;
  cblas_dgemm(order, turn_a, turn_b, m, n, k, alpha, a, a_rows, b, b_rows, beta, c, c_rows);
}

void gemv(int order, int turn, int m, int n, double alpha, const double* a, int a_rows, const double* x,
          int x_step, double beta, double* y, int y_step) {
  const OneThread one;
  cblas_dgemv(order, turn, m, n, alpha, a, a_rows, x, x_step, beta, y, y_step);
}

template <class Routine>
uint64_t address(Routine* routine) {
  return reinterpret_cast<uint64_t>(routine);
}

bool install() {
  return qv::xform::set_blas(address(solve), address(gemm), address(gemv), address(solve));
}

}  // namespace

void install_linear_algebra() {
  [[maybe_unused]] static const bool installed = install();
}

}  // namespace host
