#include "tests/nodes/filter/programs.h"

#include <qv/gpu/gl/entry_points.h>
#include <qv/gpu/registry.h>

#include "tests/support/fake_egl/fake_egl.h"

#include <algorithm>
#include <iomanip>
#include <map>
#include <sstream>

namespace programs {

namespace {

const std::vector<std::string> files{"blur_v",       "blur_h",     "blur_downrez", "blur_uprez", "glow_prep",
                                     "glow_add",     "sharpen",    "dilate",       "erode_blur", "edgeblur",
                                     "filter_erode", "row_prefix", "disc_blur",    "copy"};

const std::vector<std::pair<std::string, int32_t>> uniforms{
    {"u_size", 1}, {"u_radius", 1},      {"u_filter", 1},   {"u_factor", 2},     {"u_bbox", 4},
    {"u_cell", 2}, {"u_tolerance", 1},   {"u_tint", 3},     {"u_brightness", 1}, {"u_saturation", 1},
    {"u_n", 1},    {"u_effect_only", 1}, {"u_amount", 1},   {"u_min", 1},        {"u_max", 1},
    {"u_frac", 1}, {"u_axis", 1},        {"u_in", 1},       {"u_out", 1},        {"u_a", 1},
    {"u_b", 1},    {"u_grow", 1},        {"u_matte_ch", 1}, {"u_edge_mult", 1},  {"u_amount_only", 1},
    {"u_tile", 1}, {"u_direct", 1}};

const std::vector<std::string> samplers{"u_image", "u_glow", "u_blur", "u_matte", "u_prefix"};

constexpr unsigned out_framebuffer = 600;

}  // namespace

qv::nodes::filter::Tex target(int w, int h) {
  return {601, out_framebuffer, 0, w, h};
}

void start() {
  fake_egl::reset();
  qv::gpu::gl::load(nullptr);
  qv::nodes::filter::programs_clear();
  for (size_t i = 0; i < files.size(); ++i) {
    const auto program = static_cast<uint32_t>(i + 1);
    qv::gpu::program_forget(program);
    for (size_t k = 0; k < uniforms.size(); ++k) {
      const bool pair_of_radii = files[i] == "disc_blur" && uniforms[k].first == "u_radius";
      qv::gpu::program_add(program, uniforms[k].first,
                           {static_cast<int32_t>(k), 0, pair_of_radii ? 2 : uniforms[k].second});
    }
    qv::nodes::filter::Prog prog{program, 700, 4, 6, {}};
    for (size_t k = 0; k < samplers.size(); ++k) prog.samplers.emplace_back(samplers[k], static_cast<int>(k));
    qv::nodes::filter::program_set(files[i] + ".frag", prog);
  }
  qv::nodes::filter::Plan plan(inputs);
  plan.run(plan.pass("copy.frag", 0, {}, {}, 64, 48), target(), 0);  // a run drops what another context made
  fake_egl::take_calls();
}

std::vector<std::string> passes() {
  std::vector<std::string> lines;
  std::map<unsigned, unsigned> texture_of;  // by framebuffer
  std::map<unsigned, std::string> image{{501, "in1"}, {502, "in2"}};
  std::string file;
  std::string size;
  std::string rest;
  unsigned framebuffer = 0;
  unsigned unit = 0;
  for (const std::string& call : fake_egl::take_calls()) {
    std::istringstream in(call);
    std::string name;
    in >> name >> std::setbase(0);
    unsigned a = 0;
    unsigned b = 0;
    in >> a >> b;
    if (name == "glBindFramebuffer") framebuffer = b;
    if (name == "glFramebufferTexture2D") {
      in >> a;  // target, attachment, texture target, texture
      in >> texture_of[framebuffer];
    }
    if (name == "glUseProgram") file = files.at(a - 1);
    if (name == "glViewport") {
      std::string w;
      std::string h;
      in >> w >> h;
      size = w + 'x' + h;
      rest.clear();
    }
    if (name.rfind("glProgramUniform", 0) == 0) {
      std::string values = call.substr(call.find('[') + 1);
      values.pop_back();
      std::replace(values.begin(), values.end(), ' ', ',');
      rest += ' ' + uniforms.at(b).first.substr(2) + '=' + values;
    }
    if (name == "glActiveTexture") unit = a - 0x84C0;
    if (name == "glBindTexture" && b != 0 && !size.empty()) {
      rest += ' ' + samplers.at(unit).substr(2) + '=' + image[b];
    }
    if (name == "glDrawElementsInstancedBaseInstance") {
      std::string to = "out";
      if (framebuffer != out_framebuffer) {
        to = std::string("p").append(std::to_string(lines.size()));
        image[texture_of[framebuffer]] = to;
      }
      lines.push_back(to + ' ' + file + ' ' + size + rest);
      size.clear();
    }
  }
  return lines;
}

}  // namespace programs
