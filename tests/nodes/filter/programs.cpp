#include "tests/nodes/filter/programs.h"

#include <qv/gpu/gl/entry_points.h>
#include <qv/gpu/registry.h>
#include <qv/nodes/filter/ops.h>

#include "tests/support/fake_egl/fake_egl.h"

#include <utility>

namespace programs {

namespace filter = qv::nodes::filter;

namespace {

const std::vector<std::pair<std::string, int32_t>> uniforms{
    {"u_size", 1}, {"u_radius", 1},      {"u_filter", 1},   {"u_factor", 2},     {"u_bbox", 4},
    {"u_cell", 2}, {"u_tolerance", 1},   {"u_tint", 3},     {"u_brightness", 1}, {"u_saturation", 1},
    {"u_n", 1},    {"u_effect_only", 1}, {"u_amount", 1},   {"u_min", 1},        {"u_max", 1},
    {"u_frac", 1}, {"u_axis", 1},        {"u_in", 1},       {"u_out", 1},        {"u_a", 1},
    {"u_b", 1},    {"u_grow", 1},        {"u_matte_ch", 1}, {"u_edge_mult", 1},  {"u_amount_only", 1},
    {"u_tile", 1}, {"u_direct", 1}};

}  // namespace

filter::Tex target(int w, int h) {
  return {601, 600, 0, w, h};
}

void start() {
  fake_egl::reset();
  qv::gpu::gl::load(nullptr);
  filter::programs_clear();
  uint32_t program = 0;
  const auto add = [&](const std::string& file) {
    qv::gpu::program_forget(++program);
    int32_t location = 0;
    for (const auto& [name, floats] : uniforms) {
      const bool pair_of_radii = file == "disc_blur.frag" && name == "u_radius";
      qv::gpu::program_add(program, name, {location++, 0, pair_of_radii ? 2 : floats});
    }
    filter::Prog prog{program, 700, 4, 6, {}};
    for (const char* sampler : {"u_image", "u_glow", "u_blur", "u_matte", "u_prefix"})
      prog.samplers.emplace_back(sampler, static_cast<int>(prog.samplers.size()));
    filter::program_set(file, prog);
  };
  for (const filter::Operation& op : filter::operations())
    for (const std::string& file : filter::op_frags(op.name)) add(file);
  add("copy.frag");
  filter::Plan plan(inputs);
  plan.run(plan.pass("copy.frag", 0, {}, {}, 64, 48), target(), 0);  // a run drops what another context made
  fake_egl::take_calls();
}

}  // namespace programs
