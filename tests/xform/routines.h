#pragma once

#include <qv/xform/matrix.h>

extern "C" {
void dgesv_();
void cblas_dgemm();
void cblas_dgemv();
void dgetrf_();
}

// Installs OpenBLAS's routines, as a host does once.
inline bool install_routines() {
  const auto address = [](auto* routine) {
    return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(routine));
  };
  return qv::xform::set_blas(address(dgesv_), address(cblas_dgemm), address(cblas_dgemv), address(dgetrf_));
}
