#pragma once

#include <qv/export.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

namespace qv::nodes::color {

// The parameters of a colour node, described once and packed for every evaluation. A Spec says which
// knobs the node has and of what each uniform of its program is made; finish() checks it and lays all
// knobs out in one array of floats; pack() then fills one block a uniform, ready to upload.

// A parameter that the user sets.
struct Knob {
  std::string name;             // used in messages
  int32_t length = 1;           // components, 1 to 16
  std::vector<float> defaults;  // exactly `length` of them
};

// What a component of a uniform can be made of. Any other value of the type gives 0.
enum class SourceKind : uint8_t {
  knob = 0,         // component `component` of knob `index`
  input = 1,        // the host's input number `index`, 0 to 63
  constant = 2,     // `value`
  knob_switch = 3,  // the first component of knob `component` while that of knob `index` is not 0, else 0
};

// One component of a uniform.
struct Source {
  SourceKind kind = SourceKind::knob;
  int32_t index = 0;
  int32_t component = 0;
  float value = 0;
};

struct Uniform {
  std::string name;             // its name in the program, used in messages
  std::vector<Source> sources;  // one a component, 1 to 16
};

// The description. Externally synchronised; once finished, thread-safe to read and pack from.
struct Spec {
  std::vector<Knob> knobs;
  std::vector<Uniform> uniforms;

  // Filled by finish, of no meaning after a failure.
  std::vector<int32_t> offsets = {};  // where each knob's first component is among the knob floats
  int32_t knob_floats = 0;            // components of all knobs
  int32_t input_count = 0;            // one more than the highest input number in use

  // Checks knobs, then uniforms, and fills the three fields above; to be called again after a change.
  // False at the first fault, with a message that names the knob or uniform in *err unless err is null.
  QV_API bool finish(std::string* err);
};

// A uniform's components, laid out for the upload as they are.
struct Packed {
  int32_t uniform = 0;                // position in Spec::uniforms
  int32_t count = 0;                  // components
  std::array<float, 16> values = {};  // the first `count` are set, the others left as they were
};

// Fills out[0 .. uniforms) from the current values: `knobs` holds spec.knob_floats floats in the order
// of spec.offsets, `inputs` at least spec.input_count; either may be null where it has none. A switch
// knob of -0 counts as 0, a NaN as not 0. It must be a Spec whose finish() succeeded: nothing is
// checked here. Thread-safe; allocates nothing; a few nanoseconds a component.
QV_API void pack(const Spec& spec, const float* knobs, const float* inputs, Packed* out);

// The components of one uniform alone, into `values`; returns how many. As pack in all else.
QV_API int32_t pack_one(const Spec& spec, size_t uniform, const float* knobs, const float* inputs,
                        float* values);

// The same as pack, ready to upload as it is: out[i] goes to locations[i], where the program has uniform i.
// `Pending` is gpu::Pending, or any struct of the host's with those three members.
template <class Pending>
void pack(const Spec& spec, const float* knobs, const float* inputs, const int32_t* locations, Pending* out) {
  for (size_t i = 0; i < spec.uniforms.size(); ++i, ++out) {
    out->location = locations[i];
    out->count = pack_one(spec, i, knobs, inputs, std::data(out->values));
  }
}

}  // namespace qv::nodes::color
