#pragma once

#include <qv/xform/matrix.h>

#include <cstdint>

extern "C" {
void dgesv_();
void cblas_dgemm();
void cblas_dgemv();
void dgetrf_();
}

template <class Routine>
std::uint64_t address_of(Routine* routine) {
  return reinterpret_cast<std::uintptr_t>(routine);
}

// Installs OpenBLAS's routines, as a host does once.
inline bool install_routines() {
  return qv::xform::set_blas(address_of(dgesv_), address_of(cblas_dgemm), address_of(cblas_dgemv),
                             address_of(dgetrf_));
}
