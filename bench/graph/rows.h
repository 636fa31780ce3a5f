#pragma once

#include "bench/report.h"

// The groups of rows of bench graph, one a file. Each compares its answers with its peers' first.
namespace bench::graph {

void walk_rows(Report& report);
void flat_map_rows(Report& report);
void result_cache_rows(Report& report);
void schedule_rows(Report& report);

}  // namespace bench::graph
