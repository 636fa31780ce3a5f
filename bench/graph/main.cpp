#include "bench/graph/rows.h"

int main(int argc, char** argv) {
  bench::Report report("graph", argc, argv);
  bench::graph::walk_rows(report);
  bench::graph::flat_map_rows(report);
  bench::graph::result_cache_rows(report);
  bench::graph::schedule_rows(report);
  return report.finish();
}
