#include <qv/nodes/color/pack.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace qv::nodes::color {

namespace {

constexpr size_t most_components = 16;
constexpr uint32_t input_slots = 64;

static_assert(sizeof(Packed) == 2 * sizeof(int32_t) + most_components * sizeof(float));

bool failed(std::string* err, std::string message) {
  if (err) *err = std::move(message);
  return false;
}

bool is_position(int32_t index, size_t size) {
  return index >= 0 && static_cast<size_t>(index) < size;
}

bool in_range(const Source& source, const std::vector<Knob>& knobs) {
  switch (source.kind) {
    case SourceKind::knob:
      return is_position(source.index, knobs.size()) && source.component >= 0 &&
             source.component < knobs[static_cast<size_t>(source.index)].length;
    case SourceKind::input:
      return static_cast<uint32_t>(source.index) < input_slots;
    case SourceKind::knob_switch:
      return is_position(source.index, knobs.size()) && is_position(source.component, knobs.size());
    default:
      return true;
  }
}

}  // namespace

bool Spec::finish(std::string* err) {
  offsets.clear();
  offsets.reserve(knobs.size());
  int32_t total = 0;
  for (const Knob& knob : knobs) {
    if (knob.length < 1 || knob.length > static_cast<int32_t>(most_components) ||
        knob.defaults.size() != static_cast<size_t>(knob.length))
      return failed(err, "knob " + knob.name + ": length / default mismatch");
    if (total > std::numeric_limits<int32_t>::max() - knob.length)
      return failed(err, "knob " + knob.name + ": too many components in all");
    offsets.push_back(total);
    total += knob.length;
  }
  knob_floats = total;
  input_count = 0;

  for (const Uniform& uniform : uniforms) {
    if (uniform.sources.empty() || uniform.sources.size() > most_components)
      return failed(err, "uniform " + uniform.name + ": 1..16 components");
    for (const Source& source : uniform.sources) {
      if (!in_range(source, knobs)) return failed(err, "uniform " + uniform.name + ": source out of range");
      if (source.kind == SourceKind::input) input_count = std::max(input_count, source.index + 1);
    }
  }
  return true;
}

int32_t pack_one(const Spec& spec, size_t uniform, const float* knobs, const float* inputs, float* values) {
  const int32_t* offsets = spec.offsets.data();
  const auto component = [=](const Source& source) -> float {
    switch (source.kind) {
      case SourceKind::knob:
        return knobs[offsets[source.index] + source.component];
      case SourceKind::input:
        return inputs[source.index];
      case SourceKind::constant:
        return source.value;
      case SourceKind::knob_switch:
        return knobs[offsets[source.index]] != 0 ? knobs[offsets[source.component]] : 0;
      default:
        return 0;
    }
  };
  const std::vector<Source>& sources = spec.uniforms[uniform].sources;
  std::transform(sources.begin(), sources.end(), values, component);
  return static_cast<int32_t>(sources.size());
}

void pack(const Spec& spec, const float* knobs, const float* inputs, Packed* out) {
  for (size_t i = 0; i < spec.uniforms.size(); ++i, ++out) {
    out->uniform = static_cast<int32_t>(i);
    out->count = pack_one(spec, i, knobs, inputs, out->values.data());
  }
}

}  // namespace qv::nodes::color
