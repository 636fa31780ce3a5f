#include "host/nodes/drawn.h"
#include "host/nodes/families.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>

// Pictures to test others with.

namespace host::nodes {
namespace {

Uniform color_of(const Knobs& knobs, std::string_view uniform, const char* knob) {
  return {uniform, knobs.numbers(knob)};
}

class Picture : public Drawn {
 public:
  Extent extent(const Call& call, std::span<const Extent> /*inputs*/) const override {
    return {call.project.format, format_box(call.project.format)};
  }
};

class Checkerboard final : public Picture {
  std::optional<Drawing> drawing(const Call& call, std::span<const Image> /*inputs*/,
                                 RenderContext& /*context*/) const override {
    const std::vector<double> size = call.knobs.numbers("size");
    return Drawing{"checkerboard.frag",
                   {{"u_size", {size[0], size.size() > 1 ? size[1] : size[0]}},
                    color_of(call.knobs, "u_even", "first"),
                    color_of(call.knobs, "u_odd", "second")},
                   {}};
  }
};

class Ramp final : public Picture {
  std::optional<Drawing> drawing(const Call& call, std::span<const Image> /*inputs*/,
                                 RenderContext& /*context*/) const override {
    const std::vector<double> from = call.knobs.numbers("from");
    std::vector<double> to = call.knobs.numbers("to");
    if (from == to) to[0] += static_cast<double>(call.project.format.width);
    return Drawing{"ramp.frag",
                   {{"u_from", from},
                    {"u_to", to},
                    color_of(call.knobs, "u_first", "first"),
                    color_of(call.knobs, "u_last", "second"),
                    {"u_shape", static_cast<double>(call.knobs.choice("shape"))}},
                   {}};
  }
};

NodeType picture_type(std::string name, std::string help, std::vector<KnobSpec> knobs,
                      std::shared_ptr<const Operation> operation) {
  NodeType type;
  type.name = std::move(name);
  type.family = "in and out";
  type.help = std::move(help);
  type.knobs = std::move(knobs);
  type.operation = std::move(operation);
  return type;
}

}  // namespace

std::vector<NodeType> picture_family() {
  return {
      picture_type("checkerboard", "Fields of two colours in turn, from the lower left corner of the format.",
                   {numbers("size", {64, 64}, "Width and height of a field.")
                        .within(0.5, 100000)
                        .at_least(1)
                        .in_pixels(),
                    numbers("first", {0.18, 0.18, 0.18, 1}, "Colour of the field in the corner."),
                    numbers("second", {0.05, 0.05, 0.05, 1}, "Colour of the fields beside it.")},
                   std::make_shared<Checkerboard>()),
      picture_type("ramp", "Goes from one colour to another.",
                   {numbers("from", {0, 0}, "Where the first colour ends.").in_pixels(),
                    numbers("to", {0, 0},
                            "Where the second begins; the same point: a format's width to the right of it.")
                        .in_pixels(),
                    numbers("first", {0, 0, 0, 1}, "The colour at `from` and before it."),
                    numbers("second", {1, 1, 1, 1}, "The colour at `to` and beyond."),
                    choice("shape", "straight", {"straight", "smooth", "rings"},
                           "A straight line, one that leaves and arrives level, or rings around `from`.")},
                   std::make_shared<Ramp>()),
  };
}

}  // namespace host::nodes
