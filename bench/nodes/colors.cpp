#include <qv/nodes/color/pack.h>
#include <qv/nodes/ocio/splice.h>

#include "bench/nodes/topics.h"
#include "tests/support/allocations.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace {

using namespace qv::nodes::color;

// A grade: seven colours of four and the amount by which they count, switched by one more knob.
Spec grade() {
  Spec spec;
  for (const char* name : {"blackpoint", "whitepoint", "lift", "gain", "multiply", "offset", "gamma"}) {
    const auto index = static_cast<int32_t>(spec.knobs.size());
    spec.knobs.push_back({name, 4, {0, 0, 0, 0}});
    spec.uniforms.push_back({name, {}});
    for (int32_t c = 0; c < 4; ++c) spec.uniforms.back().sources.push_back({SourceKind::knob, index, c});
  }
  spec.knobs.push_back({"enabled", 1, {1}});
  spec.knobs.push_back({"mix", 1, {1}});
  spec.uniforms.push_back({"mix", {{SourceKind::knob_switch, 7, 8}, {SourceKind::input, 0}}});
  return spec;
}

void measure_pack(bench::Report& report) {
  const std::string name = "pack of 8 uniforms, 30 components";
  if (!report.wants(name)) return;
  Spec spec = grade();
  report.require(spec.finish(nullptr) && spec.uniforms.size() == 8, name);
  const std::vector<float> knobs(static_cast<size_t>(spec.knob_floats), 0.5F);
  const std::vector<float> inputs(static_cast<size_t>(spec.input_count), 0.25F);
  std::vector<Packed> packed(spec.uniforms.size());
  const auto fill = [&] {
    pack(spec, knobs.data(), inputs.data(), packed.data());
    bench::keep(packed);
  };
  fill();
  report.require(packed[6].values[3] == 0.5F && packed[7].values[1] == 0.25F, name);

  const int repeats = report.quick() ? 1'000 : 50'000;
  const uint64_t before = support::allocations.made;
  fill();
  report.row(name + ", allocations", "a call", bench::Better::less,
             static_cast<double>(support::allocations.made - before));
  const auto timing = bench::time_in_turn(15, {[&] {
                                            for (int i = 0; i < repeats; ++i) fill();
                                          }});
  report.row(name, "ns", bench::Better::less, 1e9 * timing[0].median / repeats);
}

// Beside a copy that moves as many bytes: 12 read and 16 written a pixel against 14 and 14.
void measure_rgb_to_rgba(bench::Report& report, size_t edge, double limit) {
  const std::string name = "rgb_to_rgba, LUT of " + std::to_string(edge) + "^3";
  if (!report.wants(name)) return;
  const size_t n = edge * edge * edge;
  std::vector<float> rgb(3 * n), rgba(4 * n);
  for (size_t i = 0; i < rgb.size(); ++i) rgb[i] = static_cast<float>(i);
  std::vector<char> from(14 * n, 1), to(14 * n);
  qv::nodes::ocio::rgb_to_rgba(rgb.data(), n, rgba.data());
  for (size_t i = 0; i < n; ++i)
    report.require(std::equal(&rgb[3 * i], &rgb[3 * i] + 3, &rgba[4 * i]) && rgba[4 * i + 3] == 1, name);

  const size_t repeats = std::max<size_t>(1, (report.quick() ? 300'000 : 5'000'000) / n);
  const auto timings = bench::time_in_turn(15, {[&] {
                                                  for (size_t i = 0; i < repeats; ++i) {
                                                    qv::nodes::ocio::rgb_to_rgba(rgb.data(), n, rgba.data());
                                                    bench::keep(rgba);
                                                  }
                                                },
                                                [&] {
                                                  for (size_t i = 0; i < repeats; ++i) {
                                                    std::memcpy(to.data(), from.data(), to.size());
                                                    bench::keep(to);
                                                  }
                                                }});
  const double gigabytes = 28e-9 * static_cast<double>(n * repeats);
  report.row(name, "GB/s", bench::Better::more, gigabytes / timings[0].median,
             {{"memcpy", gigabytes / timings[1].median}}, limit);
}

}  // namespace

void measure_colors(bench::Report& report) {
  measure_pack(report);
  // The smallest stays in the first cache, where stores are the bound and a copy stores less.
  measure_rgb_to_rgba(report, 10, 0);
  measure_rgb_to_rgba(report, 33, 0.9);
  measure_rgb_to_rgba(report, 65, 0.9);
  measure_rgb_to_rgba(report, 129, 0.9);
}
