#pragma once

#include "bench/report.h"

// The groups of rows of bench_gpu; all need the context of support::GlContext.
namespace bench {

// What a uniform value costs that the program has already, beside sending it again.
void uniform_rows(Report& report);

}  // namespace bench
