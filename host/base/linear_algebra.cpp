#include "host/base/linear_algebra.h"

#include <qv/xform/matrix.h>

#include <cstdint>

// Only their addresses are taken: the library knows how to call them.
extern "C" {
void dgesv_();   // NOLINT(readability-identifier-naming)
void dgetrf_();  // NOLINT(readability-identifier-naming)
void cblas_dgemm();
void cblas_dgemv();
void openblas_set_num_threads(int threads);
}

namespace host {
namespace {

uint64_t address(void (*routine)()) {
  return reinterpret_cast<uint64_t>(routine);
}

bool install() {
  // Systems of three unknowns: handing them to other threads takes ten times as long as solving them.
  openblas_set_num_threads(1);
  return qv::xform::set_blas(address(dgesv_), address(cblas_dgemm), address(cblas_dgemv), address(dgetrf_));
}

}  // namespace

void install_linear_algebra() {
  [[maybe_unused]] static const bool installed = install();
}

}  // namespace host
