#include <qv/graph/schedule.h>

#include "bench/graph/rows.h"

#include <random>

namespace bench::graph {

namespace {

using namespace qv::graph;

struct Shape {
  std::string name;
  bool cached;
  uint8_t flag;
  bool chain;
};

// Plans one shape at one size; ns a node.
double measure(int n, const Shape& shape, Report& report) {
  std::mt19937_64 random(11);
  std::vector<std::vector<int>> ups(static_cast<size_t>(n));
  std::vector<int64_t> hashes(static_cast<size_t>(n));
  ResultCache cache;
  for (int i = 0; i < n; ++i) {
    const auto at = static_cast<size_t>(i);
    hashes[at] = static_cast<int64_t>(random());
    if (i > 0) ups[at] = {i - 1};
    if (i > 0 && !shape.chain) ups[at].push_back(static_cast<int>(random() % static_cast<uint64_t>(i)));
    cache.put(shape.cached ? hashes[at] : hashes[at] ^ 1, i, nullptr, 0, true, 0, false);
  }
  Schedule schedule;
  schedule.build(ups, std::vector<uint8_t>(static_cast<size_t>(n), shape.flag));
  size_t needed = 0;
  const auto timings = time_in_turn(7, {[&] { needed = schedule.run(hashes, cache, false).order.size(); }});
  report.require(needed == static_cast<size_t>(n), shape.name);
  return timings[0].least * 1e9 / n;
}

}  // namespace

void schedule_rows(Report& report) {
  const int n = report.quick() ? 100000 : 1000000;
  const Shape shapes[] = {{"schedule, all hit (inputs needed all the same)", true, need_inputs, false},
                          {"schedule, all miss", false, 0, false},
                          {"schedule, one chain, all miss", false, 0, true},
                          {"schedule, one chain, nothing looked up", false, always_compute, true}};
  for (const Shape& shape : shapes) {
    if (!report.wants(shape.name)) continue;
    const double large = measure(n, shape, report);
    report.row(shape.name, "ns/node", Better::less, large);
    report.note("ns a node at a quarter of the size: " + std::to_string(measure(n / 4, shape, report)));
  }
}

}  // namespace bench::graph
