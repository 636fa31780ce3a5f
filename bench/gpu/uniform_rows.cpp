#include <qv/gpu/gl/entry_points.h>
#include <qv/gpu/registry.h>

#include "bench/gpu/filter_rig.h"
#include "bench/gpu/rows.h"

namespace bench {

namespace {

namespace gpu = qv::gpu;

struct Uniform {
  uint32_t program;
  int32_t location;
};

Uniform find_uniform(const char* op, const char* file, const char* name) {
  support::FilterRig::get().prepare(op);
  const uint32_t program = qv::nodes::filter::program_get(file)->program;
  return {program, gpu::uniform_info(program, name)->location};
}

// The same value over and over, through the cache and past it. At a few nanoseconds a call the least
// of the rounds is the time; whatever else runs on the machine only adds.
void equal_values(Report& report, const char* what, const Uniform& uniform, int32_t count,
                  void (*send)(unsigned, int, int, const float*)) {
  const int n = report.quick() ? 100'000 : 1'000'000;
  const float value[4] = {0.25F, 0.5F, 0.75F, 1};
  float other[4] = {0, 0.5F, 0.75F, 1};
  const uint64_t skipped = gpu::stats().skipped;
  constexpr int rounds = 9;
  const auto through_cache = [&] {
    for (int i = 0; i < n; ++i) {
      keep(value);  // so that no two calls are seen to be the same
      gpu::uniform_set(uniform.program, uniform.location, value, count);
    }
  };
  const auto same_value = [&] {
    for (int i = 0; i < n; ++i) send(uniform.program, uniform.location, 1, value);
  };
  const auto new_value = [&] {
    for (int i = 0; i < n; ++i) {
      other[0] = static_cast<float>(i);
      send(uniform.program, uniform.location, 1, other);
    }
  };
  const auto times = time_in_turn(rounds, {through_cache, same_value, new_value});
  report.require(gpu::stats().skipped - skipped == (rounds + 1) * static_cast<uint64_t>(n) - 1,
                 "all but the first value are skipped");
  const auto each = [n](const Timing& time) { return time.least / n * 1e9; };
  report.row(what, "ns", Better::less, each(times[0]),
             {{"GL call", each(times[1])}, {"GL call, new value", each(times[2])}}, 10);
}

void equal_blocks(Report& report, const Uniform& uniform) {
  const int n = report.quick() ? 100'000 : 1'000'000;
  const std::vector<gpu::Pending> thousand(1000, gpu::Pending{uniform.location, 1, {0.5F}});
  const auto hits = [&](uint64_t key, int32_t size) {
    return [&, key, size] {
      for (int i = 0; i < n; ++i) gpu::uniform_set_block(uniform.program, key, thousand.data(), size);
    };
  };
  const auto times = time_in_turn(7, {hits(1, 1000), hits(2, 1)});
  report.row("block of 1,000 values, key known", "ns", Better::less, times[0].least / n * 1e9,
             {{"block of 1", times[1].least / n * 1e9}}, 0.8);
}

}  // namespace

void uniform_rows(Report& report) {
  if (!report.wants("uniform") && !report.wants("block")) return;
  const Uniform number = find_uniform("dilate", "dilate.frag", "u_frac");
  const Uniform vector = find_uniform("blur", "blur_uprez.frag", "u_bbox");
  equal_values(report, "uniform float that is there already", number, 1, gpu::gl::ProgramUniform1fv);
  equal_values(report, "uniform vec4 that is there already", vector, 4, gpu::gl::ProgramUniform4fv);
  equal_blocks(report, number);
}

}  // namespace bench
