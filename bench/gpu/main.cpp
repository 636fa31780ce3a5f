#include "bench/gpu/gl_context.h"
#include "bench/gpu/rows.h"

int main(int argc, char** argv) {
  bench::Report report("gpu", argc, argv);
  std::string why;
  const support::GlContext* const gl = support::GlContext::get(&why);
  if (gl == nullptr) {
    report.note("skipped: no GL driver (" + why + ")");
    return report.finish();
  }
  report.note("driver: " + gl->renderer);
  bench::uniform_rows(report);
  bench::filter_rows(report);
  return report.finish();
}
