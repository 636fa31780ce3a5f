#include <qv/xform/steps.h>

#include "bench/nodes/topics.h"
#include "tests/support/allocations.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

extern "C" {
void dgesv_();
void cblas_dgemm();
void cblas_dgemv();
void dgetrf_();
void openblas_set_num_threads(int);
}

namespace {

template <class Routine>
uint64_t address(Routine* routine) {
  return reinterpret_cast<std::uintptr_t>(routine);
}

}  // namespace

void measure_transforms(bench::Report& report) {
  const std::string name = "total, chain of 8 steps";
  if (!report.wants(name)) {
    return;
  }
  // As a host would: waking threads for a system of eight unknowns takes longer than solving it.
  openblas_set_num_threads(1);
  report.require(
      qv::xform::set_blas(address(dgesv_), address(cblas_dgemm), address(cblas_dgemv), address(dgetrf_)),
      name + ", routines");
  std::vector<std::vector<double>> steps;
  for (int i = 0; i < 2; ++i) {
    steps.push_back({0, 10, -4, 30, 1.5, 0.5, 0.1, 0, 0, 960, 540, 0});
    steps.push_back({1, 0, 2048, 1556, 1, 0, 0, 0, 1, 1, 1, 3, 1, 0, 1, 0, 0});
    steps.push_back({2,    0, 4, 0, 0, 1920, 0, 1920, 1080, 0, 1080, 5, 5, 1900, 9, 1910, 1070, 12,
                     1075, 1, 0, 0, 0, 0,    1, 0,    0,    0, 0,    1, 0, 0,    0, 0,    1});
    steps.push_back({0, 0, 0, -30, 1, 2, 0, 0.2, 1, 960, 540, 1});
  }
  // What the routines cost is the host's: the same number of products alone shows their share.
  const auto chain = [&] { bench::keep(qv::xform::total(steps, 1920, 1080)); };
  const auto products = [&] {
    qv::xform::Matrix m{1, 0, 0, 0, 1, 0, 0, 0, 1};
    for (size_t i = 0; i < steps.size(); ++i) {
      m = qv::xform::product(m, m);
    }
    bench::keep(m);
  };
  constexpr int calls = 2000;
  const auto many = [](const auto& call) {
    return [call] {
      for (int i = 0; i < calls; ++i) {
        call();
      }
    };
  };
  const auto timings = bench::time_in_turn(report.quick() ? 5 : 25, {many(chain), many(products)});
  report.row(name, "ns", bench::Better::less, timings[0].median * 1e9 / calls);
  report.row("of it, 8 products", "ns", bench::Better::less, timings[1].median * 1e9 / calls);
  const uint64_t before = support::allocations.made;
  chain();
  report.row(name, "allocs", bench::Better::less, static_cast<double>(support::allocations.made - before));
}
