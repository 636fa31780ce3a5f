#pragma once

#include <cstddef>
#include <cstdint>

namespace qv::io {

// The two ways of half_to_float, apart, so that each can be checked and timed. Thread-safe.

// True when this processor has AVX and F16C and the operating system keeps AVX registers.
bool has_vector_path();

// By integer arithmetic; runs everywhere.
void widen_scalar(const uint16_t* src, float* dst, size_t n);

// By the processor's conversion. Only where has_vector_path().
void widen_vector(const uint16_t* src, float* dst, size_t n);

}  // namespace qv::io
