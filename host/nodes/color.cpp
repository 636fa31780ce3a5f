#include <qv/nodes/color/pack.h>

#include "host/nodes/drawn.h"
#include "host/nodes/families.h"

#include <array>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

// Colour corrections, declared as data: a row names the program, its knobs, and of what each uniform
// is made. All of them correct colour without its coverage (divided by alpha) unless told otherwise,
// where a mask lets them, and leave alpha alone.

namespace host::nodes {
namespace {

namespace color = qv::nodes::color;
using color::SourceKind;

// Inputs of the packed uniforms, which the node and not the user decides.
enum InputNumber : int32_t { has_coverage = 0, input_count = 1 };

class Correction final : public Drawn {
 public:
  Correction(std::string program, color::Spec spec) : program_(std::move(program)), spec_(std::move(spec)) {
    std::string problem;
    if (!spec_.finish(&problem)) throw std::logic_error(program_ + ": " + problem);
  }

  std::optional<Drawing> drawing(const Call& call, std::span<const Image> inputs,
                                 RenderContext& /*context*/) const override {
    if (!inputs[0].texture) return std::nullopt;
    const std::vector<float> knobs = knob_floats(call.knobs);
    std::array<float, input_count> given{};
    given[has_coverage] = inputs[0].coverage ? 1.0F : 0.0F;
    std::vector<color::Packed> packed(spec_.uniforms.size());
    color::pack(spec_, knobs.data(), given.data(), packed.data());

    Drawing drawing{program_, {}, {{"u_image", inputs[0]}}};
    for (const color::Packed& block : packed) {
      const std::vector<double> values(block.values.begin(), block.values.begin() + block.count);
      drawing.uniforms.emplace_back(spec_.uniforms[static_cast<size_t>(block.uniform)].name, values);
    }
    return drawing;
  }

 private:
  // The knobs in the order of spec_, with which those of the node type begin.
  std::vector<float> knob_floats(const Knobs& knobs) const {
    std::vector<float> floats;
    floats.reserve(static_cast<size_t>(spec_.knob_floats));
    for (size_t k = 0; k < spec_.knobs.size(); ++k)
      for (int c = 0; c < spec_.knobs[k].length; ++c)
        floats.push_back(static_cast<float>(knobs.value(k, static_cast<size_t>(c))));
    return floats;
  }

  const std::string program_;
  color::Spec spec_;
};

// A row in the making: the knobs that people see, and the uniforms that are made of them.
class Row {
 public:
  Row(std::string name, std::string help) {
    type_.name = std::move(name);
    type_.family = "colour";
    type_.help = std::move(help);
    type_.inputs = {{"image", true, "What to correct."}};
  }

  // A knob whose components are a uniform of its own, "u_" and its name.
  Row& with(KnobSpec spec) {
    color::Uniform uniform{"u_" + spec.name, {}};
    for (int c = 0; c < spec.length(); ++c) uniform.sources.push_back({SourceKind::knob, count(), c, 0});
    uniforms_.push_back(std::move(uniform));
    type_.knobs.push_back(std::move(spec));
    return *this;
  }

  // A limit that holds only while its flag is set: uniform (limit or 0, flag).
  Row& with_limit(KnobSpec on, KnobSpec limit) {
    uniforms_.push_back(
        {"u_" + limit.name,
         {{SourceKind::knob_switch, count(), count() + 1, 0}, {SourceKind::knob, count(), 0, 0}}});
    type_.knobs.push_back(std::move(on));
    type_.knobs.push_back(std::move(limit));
    return *this;
  }

  Row& with_constants(const std::string& uniform, std::initializer_list<float> values) {
    color::Uniform made{uniform, {}};
    for (const float value : values) made.sources.push_back({SourceKind::constant, 0, 0, value});
    uniforms_.push_back(std::move(made));
    return *this;
  }

  NodeType finish() {
    with(flag("unpremultiply", true, "Corrects colour as it is without its coverage."));
    uniforms_.push_back({"u_coverage", {{SourceKind::input, has_coverage, 0, 0}}});
    color::Spec spec;
    for (const KnobSpec& knob : type_.knobs)
      spec.knobs.push_back({knob.name, knob.length(), {knob.defaults.begin(), knob.defaults.end()}});
    spec.uniforms = std::move(uniforms_);
    type_.operation = std::make_shared<Correction>(type_.name + ".frag", std::move(spec));
    return std::move(type_);
  }

 private:
  int32_t count() const {
    return static_cast<int32_t>(type_.knobs.size());
  }

  NodeType type_;
  std::vector<color::Uniform> uniforms_;
};

NodeType grade() {
  return Row("grade", "Sets black and white points, gain, lift and gamma.")
      .with(numbers("blackpoint", {0, 0, 0}, "This colour becomes `lift`."))
      .with(numbers("whitepoint", {1, 1, 1}, "This colour becomes `gain`."))
      .with(numbers("lift", {0, 0, 0}, "What black becomes."))
      .with(numbers("gain", {1, 1, 1}, "What white becomes."))
      .with(numbers("multiply", {1, 1, 1}, "Multiplies the result."))
      .with(numbers("offset", {0, 0, 0}, "Is added to the result."))
      .with(numbers("gamma", {1, 1, 1}, "Bends the result: above 1 raises the middle.").within(0.01, 100))
      .with(flag("clamp_black", false, "Holds the result at 0 and above."))
      .with(flag("clamp_white", false, "Holds the result at 1 and below."))
      .finish();
}

NodeType saturation() {
  return Row("saturation", "Makes colour stronger or weaker, at the same Rec. 709 luminance.")
      .with(number("saturation", 1, "0: grey, 1: as it is, 2: twice as strong.").within(0, 100))
      .with_constants("u_luminance", {0.2126F, 0.7152F, 0.0722F})
      .finish();
}

NodeType color_matrix() {
  return Row("color_matrix", "Multiplies colour by a 3x3 matrix, given row by row.")
      .with(numbers("red", {1, 0, 0}, "What red is made of: its parts of red, green and blue."))
      .with(numbers("green", {0, 1, 0}, "What green is made of."))
      .with(numbers("blue", {0, 0, 1}, "What blue is made of."))
      .finish();
}

NodeType clamp() {
  return Row("clamp", "Holds colour between two limits.")
      .with_limit(flag("limit_low", true, "Whether `low` holds."), number("low", 0, "The lower limit."))
      .with_limit(flag("limit_high", true, "Whether `high` holds."), number("high", 1, "The upper limit."))
      .finish();
}

}  // namespace

std::vector<NodeType> color_family() {
  return {grade(), saturation(), color_matrix(), clamp()};
}

}  // namespace host::nodes
