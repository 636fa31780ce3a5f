#pragma once

#include "bench/report.h"

// The groups of rows of bench_gpu; all need the context of support::GlContext.
namespace bench {

// What a uniform value costs that the program has already, beside sending it again.
void uniform_rows(Report& report);

// What the filters take, beside the blurs of other libraries and, on a graphics card, its memory.
void filter_rows(Report& report);

}  // namespace bench
