// Image reading: widening halves, plain files, layers, and the background queue, each beside what a
// host would otherwise call.
#include "bench/io/benches.h"

int main(int argc, char** argv) {
  bench::Report report("io", argc, argv);
  if (report.wants("half")) bench_half(report);
  if (report.wants("decode")) bench_decode(report);
  if (report.wants("layers")) bench_layers(report);
  if (report.wants("scheduler")) bench_scheduler(report);
  return report.finish();
}
