#include "bench/nodes/topics.h"

int main(int argc, char** argv) {
  bench::Report report("nodes", argc, argv);
  measure_curves(report);
  measure_transforms(report);
  measure_texts(report);
  measure_colors(report);
  return report.finish();
}
