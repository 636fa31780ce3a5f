#include "host/nodes/drawn.h"
#include "host/nodes/families.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>

// What is done to every pixel by itself, alpha and colour alike.

namespace host::nodes {
namespace {

// Colour times alpha, or divided by it. Divided, its alpha covers nothing any more: nobody divides again.
class Premultiply final : public Drawn {
 public:
  explicit Premultiply(bool multiplies) : multiplies_(multiplies) {}

  std::optional<Drawing> drawing(const Call& /*call*/, std::span<const Image> inputs,
                                 RenderContext& /*context*/) const override {
    if (!inputs[0].texture) return std::nullopt;
    return Drawing{multiplies_ ? "premultiply.frag" : "unpremultiply.frag", {}, {{"u_image", inputs[0]}}};
  }

  bool coverage(const Call& /*call*/, std::span<const Image> /*inputs*/) const override {
    return multiplies_;
  }

 private:
  bool multiplies_;
};

class Invert final : public Drawn {
 public:
  // What is nothing becomes white.
  Extent extent(const Call& /*call*/, std::span<const Extent> inputs) const override {
    return {inputs[0].format, hull(inputs[0].window, format_box(inputs[0].format))};
  }

  std::optional<Drawing> drawing(const Call& /*call*/, std::span<const Image> inputs,
                                 RenderContext& /*context*/) const override {
    return Drawing{"invert.frag", {{"u_coverage", inputs[0].coverage ? 1.0 : 0.0}}, {{"u_image", inputs[0]}}};
  }
};

class FindNan final : public Drawn {
 public:
  std::optional<Drawing> drawing(const Call& call, std::span<const Image> inputs,
                                 RenderContext& /*context*/) const override {
    if (!inputs[0].texture) return std::nullopt;
    return Drawing{"find_nan.frag",
                   {{"u_show", static_cast<double>(call.knobs.choice("replace"))}},
                   {{"u_image", inputs[0]}}};
  }

  bool coverage(const Call& call, std::span<const Image> inputs) const override {
    return inputs[0].coverage && call.knobs.text("replace") != "show";
  }
};

NodeType pixel_type(std::string name, std::string help, std::shared_ptr<const Operation> operation) {
  NodeType type;
  type.name = std::move(name);
  type.family = "colour";
  type.help = std::move(help);
  type.inputs = {{"image", true, "What to change."}};
  type.operation = std::move(operation);
  return type;
}

NodeType invert() {
  NodeType type = pixel_type("invert",
                             "Turns values around, 1 - x: colour as it is without its coverage, and, where "
                             "`channels` says so, alpha.",
                             std::make_shared<Invert>());
  type.changed_channels = "rgb";
  return type;
}

NodeType find_nan() {
  NodeType type = pixel_type("find_nan", "Finds values that are infinite or no numbers at all.",
                             std::make_shared<FindNan>());
  type.knobs = {
      choice("replace", "black", {"black", "neighbours", "show"},
             "What stands in their place: 0, the mean of the nearest numbers around, up to 16 pixels "
             "away; or shows where they are.")};
  return type;
}

}  // namespace

std::vector<NodeType> pixel_family() {
  return {pixel_type("premultiply", "Multiplies colour by alpha.", std::make_shared<Premultiply>(true)),
          pixel_type("unpremultiply",
                     "Divides colour by alpha, where there is any; `premultiply` brings it back. In between "
                     "no node divides again.",
                     std::make_shared<Premultiply>(false)),
          invert(), find_nan()};
}

}  // namespace host::nodes
