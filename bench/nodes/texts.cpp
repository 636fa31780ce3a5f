#include <qv/nodes/merge/channels.h>

#include "bench/nodes/topics.h"
#include "tests/support/allocations.h"

#include <array>
#include <string>

void measure_texts(bench::Report& report) {
  const std::string name = "shuffle_routing of 8 records";
  if (!report.wants(name)) return;
  const std::string text =
      "8 rgba.red 0 0 rgba.red 0 0 rgba.green 0 1 rgba.green 0 1 rgba.blue 1 2 rgba.blue 0 2 white 0 3 "
      "rgba.alpha 0 3 depth.z 0 0 forward.u 1 0 forward.v 1 1 forward.v 1 1 black 0 2 forward.z 1 2 "
      "mask.a 1 3 forward.w 1 3";
  std::array<qv::nodes::merge::Route, 8> routes;
  const auto read = [&] {
    qv::nodes::merge::shuffle_routing(text, routes);
    bench::keep(routes);
  };
  read();
  const std::array<int, 8> kinds = {3, 3, 3, 2, 3, 3, 1, 3};
  for (size_t i = 0; i < routes.size(); ++i) report.require(routes[i].kind == kinds[i], name);

  const int repeats = report.quick() ? 1'000 : 20'000;
  const uint64_t before = support::allocations.made;
  read();
  report.row(name + ", allocations", "a call", bench::Better::less,
             static_cast<double>(support::allocations.made - before));
  const auto timing = bench::time_in_turn(15, {[&] {
                                            for (int i = 0; i < repeats; ++i) read();
                                          }});
  report.row(name, "ns", bench::Better::less, 1e9 * timing[0].median / repeats);
}
