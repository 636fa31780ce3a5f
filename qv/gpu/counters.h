#pragma once

#include <qv/gpu/registry.h>

namespace qv::gpu {

// The one Stats of the process, as the GPU layer itself writes it; others read it through stats().
inline Stats counters;

}  // namespace qv::gpu
