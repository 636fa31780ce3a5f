#include <qv/gpu/draw.h>
#include <qv/nodes/filter/ops.h>

#include "bench/report.h"
#include "tests/nodes/filter/programs.h"
#include "tests/support/fake_egl/fake_egl.h"

#include <array>
#include <string>

namespace {

namespace filter = qv::nodes::filter;

// Nanoseconds that the library may take for a pass, as a peer to be no slower than.
const std::pair<std::string, double> bound{"bound of 300", 300};

void single_draws(bench::Report& report) {
  const int n = report.quick() ? 20'000 : 200'000;
  constexpr uint32_t program = 1;
  std::array<qv::gpu::Pending, 6> pending;
  for (size_t i = 0; i < pending.size(); ++i) pending[i] = {static_cast<int32_t>(i), 4, {1, 2, 3, 4}};
  const std::array units{qv::gpu::Unit{0, 0x0DE1, 1, 0}, qv::gpu::Unit{1, 0x0DE1, 2, 0}};
  const auto draws = [&](bool change) {
    return [&, change] {
      for (int i = 0; i < n; ++i) {
        for (auto& value : pending) value.values[0] += change ? 1 : 0;
        qv::gpu::draw(1, 64, 64, program, pending.data(), 6, units.data(), 2, 1, 4, 3, 0);
      }
    };
  };
  const auto times = bench::time_in_turn(7, {draws(false), draws(true)});
  const auto row = [&](const char* name, const bench::Timing& time) {
    report.row(name, "ns", bench::Better::less, time.least / n * 1e9, {bound}, 1);
  };
  row("draw, 2 textures, 6 values unchanged", times[0]);
  row("draw, 2 textures, 6 values changed", times[1]);
}

struct Run {
  const char* op;
  std::vector<double> params;
  size_t inputs = 1;

  bool drawn() const {
    return filter::run_op(op, std::span(programs::inputs).first(inputs), params, programs::target(), 0) == 1;
  }
};

const std::vector<Run> runs{
    {"blur", {100, 100, 3, 25, 0, 0, 64, 48}},
    {"glow", {9, 9, 3, 0, 0, 0, 64, 48, 0.5, 1, 1, 1, 1, 1, 0}},
    {"sharpen", {9, 9, 3, 0, 0, 0, 64, 48, 1, -1, 1}},
    {"dilate", {2.5}},
    {"filter_erode", {2.5, 3}},
    {"erode", {2.5, 2, 0, 0, 0, 64, 48}},
    {"edgeblur", {9, 9, 3, 0, 0, 0, 64, 48, 3, 1, 1, 1, 1, 1}, 2},
    {"disc", {5, 5, 0}},
};

// The time for building, resolving and drawing, divided by the passes.
void whole_filters(bench::Report& report) {
  const int n = report.quick() ? 2'000 : 20'000;
  for (const Run& run : runs) {
    report.require(run.drawn(), std::string(run.op) + " is drawn");
    const size_t objects = fake_egl::alive("texture").count + fake_egl::alive("framebuffer").count;
    const filter::ScratchStats before = filter::stats();
    const auto times = bench::time_in_turn(7, {[&] {
                                             for (int i = 0; i < n; ++i) run.drawn();
                                           }});
    const filter::ScratchStats after = filter::stats();
    report.require(after.created == before.created && after.evicted == before.evicted &&
                       fake_egl::alive("texture").count + fake_egl::alive("framebuffer").count == objects,
                   std::string(run.op) + " makes no GL object when it runs again");
    const double passes =
        static_cast<double>(after.draws - before.draws) / static_cast<double>(after.runs - before.runs);
    report.row(std::string("run_op ") + run.op + ", a pass", "ns", bench::Better::less,
               times[0].least / n / passes * 1e9, {bound}, 1);
  }
  report.note("no filter made a GL object after its first run");
}

}  // namespace

int main(int argc, char** argv) {
  bench::Report report("gpu_overhead", argc, argv);
  programs::start();
  fake_egl::recording = false;
  if (report.wants("draw")) single_draws(report);
  if (report.wants("run_op")) whole_filters(report);
  return report.finish();
}
