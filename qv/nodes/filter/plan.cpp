#include <qv/gpu/draw.h>
#include <qv/gpu/gl/enums.h>
#include <qv/gpu/name_map.h>
#include <qv/gpu/registry.h>
#include <qv/nodes/filter/plan.h>
#include <qv/nodes/filter/scratch_pool.h>

#include <algorithm>
#include <array>
#include <iterator>

namespace qv::nodes::filter {

namespace {

gpu::NameMap<Prog>& program_table() {
  static gpu::NameMap<Prog> table;
  return table;
}

Uni make_uni(const char* name, int32_t n, double a, double b, double c, double d) {
  return {
      name, n, {static_cast<float>(a), static_cast<float>(b), static_cast<float>(c), static_cast<float>(d)}};
}

// Which texture unit reads which slot.
struct Binding {
  uint32_t unit = 0;
  size_t slot = 0;
};

// Which of the values and bindings belong to a pass.
struct Span {
  size_t first_value = 0;
  size_t end_value = 0;
  size_t first_binding = 0;
  size_t end_binding = 0;
};

// What the passes of a run upload and read, one after the other, and what its slots hold meanwhile.
// Kept between runs, so that a filter that runs again allocates nothing here.
struct Workspace {
  std::vector<gpu::Pending> values;
  std::vector<Binding> bindings;
  std::vector<Span> passes;
  std::vector<Held> held;
  // The last pass that reads a slot; the number of passes for a slot that none reads.
  std::vector<size_t> last_reader;
};

Workspace& workspace() {
  static Workspace instance;
  return instance;
}

bool has_slot(const std::vector<Plan::Slot>& slots, int slot) {
  return slot >= 0 && static_cast<size_t>(slot) < slots.size();
}

bool well_formed(const Pass& pass, const std::vector<Plan::Slot>& slots) {
  if (!has_slot(slots, pass.out)) return false;
  const Plan::Slot& out = slots[static_cast<size_t>(pass.out)];
  if (scratch_bytes(out.w, out.h) == 0) return false;
  return std::all_of(pass.textures.begin(), pass.textures.end(),
                     [&](const auto& texture) { return has_slot(slots, texture.second); });
}

void resolve_values(const Pass& pass, std::vector<gpu::Pending>& values) {
  for (const Uni& uni : pass.unis) {
    const gpu::UniformInfo* const info = gpu::uniform_info(pass.prog->program, uni.name);
    if (info == nullptr || uni.n < 1 || uni.n > 4 || !gpu::uniform_accepts(*info, uni.n)) continue;
    gpu::Pending& value = values.emplace_back();
    value.location = info->location;
    value.count = uni.n;
    std::copy_n(uni.v, uni.n, value.values);
  }
}

void resolve_bindings(const Pass& pass, std::vector<Binding>& bindings) {
  for (const auto& [sampler, slot] : pass.textures) {
    const auto& samplers = pass.prog->samplers;
    const auto at = std::find_if(samplers.begin(), samplers.end(),
                                 [&name = sampler](const auto& known) { return known.first == name; });
    if (at == samplers.end()) continue;
    bindings.push_back({static_cast<uint32_t>(at->second), static_cast<size_t>(slot)});
  }
}

// Finds program, values and bindings of every pass, and notes the program in the pass. False for a
// plan that cannot be drawn. No GL calls.
bool resolve(std::vector<Pass>& passes, const std::vector<Plan::Slot>& slots, Workspace& work) {
  work.values.clear();
  work.bindings.clear();
  work.passes.clear();
  for (Pass& pass : passes) {
    if (!well_formed(pass, slots)) return false;
    pass.prog = program_get(pass.program);
    if (pass.prog == nullptr || !gpu::program_known(pass.prog->program)) return false;
    Span span{work.values.size(), 0, work.bindings.size(), 0};
    resolve_values(pass, work.values);
    resolve_bindings(pass, work.bindings);
    span.end_value = work.values.size();
    span.end_binding = work.bindings.size();
    work.passes.push_back(span);
  }
  return true;
}

// Draws the passes of one run. No slot holds a scratch texture before or after.
class Runner {
 public:
  Runner(std::vector<Plan::Slot>& slots, const std::vector<Pass>& passes, Workspace& work, uint32_t restore)
      : slots_(slots), passes_(passes), work_(work), restore_(restore) {
    work_.held.resize(slots.size());
    work_.last_reader.assign(slots.size(), passes.size());
    for (size_t i = 0; i < passes.size(); ++i) {
      for (const Binding& binding : bindings_of(i)) work_.last_reader[binding.slot] = i;
    }
  }

  // Gives back what no pass has read, or a pass that was not drawn would have.
  ~Runner() {
    for (size_t slot = 0; slot < slots_.size(); ++slot) give_back(slot);
  }
  Runner(const Runner&) = delete;
  Runner& operator=(const Runner&) = delete;

  int draw_all() {
    int result = run_drawn;
    for (size_t i = 0; i < passes_.size() && result == run_drawn; ++i) {
      result = draw(i);
      if (result == run_drawn) give_back_after(i);
    }
    return result;
  }

 private:
  std::span<const Binding> bindings_of(size_t pass) const {
    const Span& span = work_.passes[pass];
    return std::span(work_.bindings).subspan(span.first_binding, span.end_binding - span.first_binding);
  }

  int draw(size_t i) {
    const Pass& pass = passes_[i];
    const auto out = static_cast<size_t>(pass.out);
    if (slots_[out].kind == slot_scratch && !take(out)) return run_refused;
    std::array<gpu::Unit, 16> units;
    const auto bindings = bindings_of(i);
    const size_t unit_count = std::min(bindings.size(), units.size());
    for (size_t k = 0; k < unit_count; ++k) {
      const Tex& tex = slots_[bindings[k].slot].tex;
      units[k] = {bindings[k].unit, gpu::gl::TEXTURE_2D, tex.texture, tex.sampler};
    }
    const Span& span = work_.passes[i];
    const Tex& target = slots_[out].tex;
    const int refused = gpu::draw(
        target.fbo, slots_[out].w, slots_[out].h, pass.prog->program, work_.values.data() + span.first_value,
        static_cast<int32_t>(span.end_value - span.first_value), units.data(),
        static_cast<int32_t>(unit_count), pass.prog->vao, pass.prog->mode, pass.prog->count, restore_);
    ++scratch_pool().stats.draws;
    return refused == gpu::draw_done ? run_drawn : run_refused;
  }

  bool take(size_t slot) {
    if (!work_.held[slot].empty()) return true;
    if (!scratch_pool().take(slots_[slot].w, slots_[slot].h, restore_, work_.held[slot])) return false;
    slots_[slot].tex = work_.held[slot].front().tex;
    return true;
  }

  void give_back(size_t slot) {
    if (work_.held[slot].empty()) return;
    scratch_pool().give_back(work_.held[slot]);
    slots_[slot].tex = {};
  }

  void give_back_after(size_t pass) {
    for (const Binding& binding : bindings_of(pass)) {
      if (work_.last_reader[binding.slot] == pass) give_back(binding.slot);
    }
  }

  std::vector<Plan::Slot>& slots_;
  const std::vector<Pass>& passes_;
  Workspace& work_;
  uint32_t restore_;
};

}  // namespace

Uni U(const char* name, double a) {
  return make_uni(name, 1, a, 0, 0, 0);
}

Uni U2(const char* name, double a, double b) {
  return make_uni(name, 2, a, b, 0, 0);
}

Uni U3(const char* name, double a, double b, double c) {
  return make_uni(name, 3, a, b, c, 0);
}

Uni U4(const char* name, double a, double b, double c, double d) {
  return make_uni(name, 4, a, b, c, d);
}

const Prog* program_get(std::string_view name) {
  return gpu::find(program_table(), name);
}

void program_set(std::string_view name, const Prog& prog) {
  gpu::assign(program_table(), name, prog);
}

void programs_clear() {
  program_table().clear();
}

Plan::Plan(std::span<const Tex> inputs) {
  constexpr size_t usual_passes = 8;
  slots.reserve(inputs.size() + usual_passes);
  passes.reserve(usual_passes);
  for (const Tex& tex : inputs) slots.push_back({slot_input, tex.w, tex.h, tex});
}

int Plan::pass(const char* program, int input, std::vector<Uni> unis,
               std::vector<std::pair<std::string, int>> textures, int w, int h) {
  if (w <= 0 && has_slot(slots, input)) {
    w = slots[static_cast<size_t>(input)].w;
    h = slots[static_cast<size_t>(input)].h;
  }
  std::vector<std::pair<std::string, int>> reads;
  reads.reserve(textures.size() + 1);
  if (input >= 0) reads.emplace_back("u_image", input);
  std::move(textures.begin(), textures.end(), std::back_inserter(reads));
  const auto out = static_cast<int32_t>(slots.size());
  Pass next{nullptr, program, std::move(reads), std::move(unis), out};
  if (passes.size() == passes.capacity()) passes.reserve(2 * passes.size() + 1);
  slots.push_back({slot_scratch, w, h, {}});
  passes.push_back(std::move(next));
  return out;
}

int Plan::run(int out, const Tex& target, uint32_t restore) {
  if (!has_slot(slots, out)) return run_bad;
  Slot& result_slot = slots[static_cast<size_t>(out)];
  if (result_slot.kind == slot_input) return run_nothing;
  if (result_slot.w != target.w || result_slot.h != target.h) return run_bad;
  Workspace& work = workspace();
  if (!resolve(passes, slots, work)) return run_bad;

  ScratchPool& pool = scratch_pool();
  if (!pool.enter_context()) return run_refused;
  result_slot.kind = slot_target;
  result_slot.tex = target;
  const int result = Runner(slots, passes, work, restore).draw_all();
  pool.trim_to_cap();
  pool.refresh_bytes();
  ++pool.stats.runs;
  return result;
}

}  // namespace qv::nodes::filter
