#include <qv/nodes/keyer/keyer.h>

#include "host/nodes/drawn.h"
#include "host/nodes/families.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <optional>
#include <utility>

// Mattes made of colour, and colour mended where mattes are soft.

namespace host::nodes {
namespace {

namespace logic = qv::nodes::keyer;

class RangeKey final : public Drawn {
 public:
  std::optional<Drawing> drawing(const Call& call, std::span<const Image> inputs,
                                 RenderContext& /*context*/) const override {
    const Knobs& knobs = call.knobs;
    std::array<double, 4> range{};
    for (size_t i = 0; i < range.size(); ++i) range[i] = knobs.number("range", i);
    Drawing drawing{"range_key.frag",
                    {{"u_channel", static_cast<double>(knobs.choice("channel"))},
                     {"u_range", logic::keyer_range(range)},
                     {"u_invert", knobs.flag("invert") ? 1.0 : 0.0},
                     {"u_coverage", inputs[0].coverage ? 1.0 : 0.0},
                     {"u_output", static_cast<double>(knobs.choice("output"))}},
                    {{"u_image", inputs[0]}}};
    return drawing;
  }

  // A matte covers nothing; cut out by it, even data has an alpha that it is premultiplied by.
  bool coverage(const Call& call, std::span<const Image> inputs) const override {
    const std::string& output = call.knobs.text("output");
    return output == "image" || (output == "alpha" && inputs[0].coverage);
  }
};

NodeType range_key() {
  NodeType type;
  type.name = "range_key";
  type.family = "key";
  type.help = "Keys by a range of one value: brightness, a channel or saturation.";
  type.inputs = {{"image", true, "What to key."}};
  type.knobs = {
      choice("channel", "luminance",
             {"luminance", "red", "green", "blue", "alpha", "min", "max", "saturation"},
             "The value, of colour without its coverage; min and max: of red, green and blue."),
      numbers("range", {0, 1, 1000, 1000},
              "The matte rises from the first value to the second and falls from the third to the last."),
      flag("invert", false, "Keeps what lies outside the range."),
      choice("output", "image", {"image", "matte", "alpha"},
             "The image times the matte, the matte in all channels, or the image with the matte as alpha."),
  };
  type.operation = std::make_shared<RangeKey>();
  return type;
}

class ScreenKey final : public Drawn {
 public:
  std::optional<Drawing> drawing(const Call& call, std::span<const Image> inputs,
                                 RenderContext& /*context*/) const override {
    const Knobs& knobs = call.knobs;
    const std::array<double, 3> screen = {knobs.number("screen", 0), knobs.number("screen", 1),
                                          knobs.number("screen", 2)};
    std::array<double, 3> selector{};
    std::array<double, 3> weights{};
    logic::screen_channels(screen, knobs.number("balance"), selector, weights);
    Drawing drawing{"screen_key.frag",
                    {{"u_screen", screen},
                     {"u_selector", selector},
                     {"u_weights", weights},
                     {"u_clip", {knobs.number("black"), knobs.number("white")}},
                     {"u_despill", knobs.number("despill")},
                     {"u_coverage", inputs[0].coverage ? 1.0 : 0.0},
                     {"u_masks", {inputs[1].coverage ? 3.0 : 0.0, inputs[2].coverage ? 3.0 : 0.0}},
                     {"u_output", static_cast<double>(knobs.choice("output"))}},
                    {{"u_image", inputs[0]}, {"u_core", inputs[1]}, {"u_garbage", inputs[2]}}};
    return drawing;
  }

  bool coverage(const Call& call, std::span<const Image> inputs) const override {
    const std::string& output = call.knobs.text("output");
    return output == "foreground" || (output == "despill" && inputs[0].coverage);
  }
};

NodeType screen_key() {
  NodeType type;
  type.name = "screen_key";
  type.family = "key";
  type.help = "Keys a green, blue or red screen by colour difference and takes its colour out of the edges.";
  type.inputs = {{"image", true, "The plate with the screen."},
                 {"core", false, "Where the foreground is solid, by its alpha, or by the values of data."},
                 {"garbage", false, "Where nothing is kept, by its alpha, or by the values of data."}};
  type.knobs = {
      numbers("screen", {0, 1, 0}, "The screen's colour, as the plate has it."),
      number("balance", 0.5,
             "What the screen's channel is compared with: the first of the other two at 1, the second at 0.")
          .within(0, 1),
      number("black", 0, "Matte values up to here become 0.").within(0, 1),
      number("white", 1, "Matte values from here on become 1.").within(0, 1),
      number("despill", 1, "How much of the screen's colour leaves the foreground, 0: none.").within(0, 1),
      choice("output", "foreground", {"foreground", "matte", "despill"},
             "The keyed foreground, the matte in all channels, or the plate despilled but not keyed."),
  };
  type.operation = std::make_shared<ScreenKey>();
  return type;
}

// Colour travels outwards through a pyramid: each level halves the one before, until one cell covers
// the image; on the way back every level fills its gaps from the level above it.
class EdgeFill final : public Operation {
 public:
  Extent extent(const Call& call, std::span<const Extent> inputs) const override {
    Extent result = inputs[0];
    const bool fills = call.knobs.text("output") == "filled" && !is_empty(result.window);
    if (fills) result.window = hull(result.window, format_box(result.format));
    return result;
  }

  Image render(const Call& call, std::span<const Image> inputs, const Extent& extent,
               RenderContext& context) const override {
    if (!inputs[0].texture) return inputs[0];
    // Where alpha is no coverage, nothing is open.
    if (!inputs[0].coverage) return context.windowed(inputs[0], extent.window, true);
    const double trust = call.knobs.number("trust");
    // A proxy may ask for cells smaller than the least that the pyramid starts with.
    const double cell = std::max(2.0, std::round(call.knobs.number("size")));
    const Image fill = pyramid(context.windowed(inputs[0], extent.window), cell, trust, context);
    const Uniform uniforms[] = {{"u_factor", cell},
                                {"u_trust", trust},
                                {"u_keep_alpha", call.knobs.text("output") == "edges" ? 1.0 : 0.0}};
    const Input images[] = {{"u_image", inputs[0]}, {"u_above", fill}};
    Image result = context.make(extent);
    context.draw("edge_fill.frag", result, uniforms, images);
    return result;
  }

 private:
  // The filled first level, with cells of `cell` pixels.
  static Image pyramid(const Image& image, double cell, double trust, RenderContext& context) {
    const Box& window = image.extent.window;
    const int count = logic::fill_levels(cell, box_width(window), box_height(window));
    std::vector<Image> levels = {pushed(image, cell, trust, context)};
    // Ten levels are no end of a large image: on to the one cell from which every gap is filled.
    const auto one_cell = [&levels] {
      return levels.back().texture->width == 1 && levels.back().texture->height == 1;
    };
    while (static_cast<int>(levels.size()) < count || !one_cell())
      levels.push_back(pushed(levels.back(), 2, -1, context));
    Image filled = levels.back();
    for (size_t at = levels.size() - 1; at-- > 0;) {
      Image next = context.make(levels[at].extent);
      const Uniform uniforms[] = {{"u_factor", 2.0}};
      const Input images[] = {{"u_image", levels[at]}, {"u_above", filled}};
      context.draw("fill_pull.frag", next, uniforms, images);
      filled = std::move(next);
    }
    return filled;
  }

  static Image pushed(const Image& finer, double factor, double trust, RenderContext& context) {
    const auto cells = [factor](int64_t texels) {
      return static_cast<int64_t>(std::ceil(static_cast<double>(texels) / factor));
    };
    const Box& window = finer.extent.window;
    Image level =
        context.make({finer.extent.format, {0, 0, cells(box_width(window)), cells(box_height(window))}});
    const Uniform uniforms[] = {{"u_factor", factor}, {"u_trust", trust}};
    const Input images[] = {{"u_image", finer}};
    context.draw("fill_push.frag", level, uniforms, images);
    return level;
  }
};

NodeType edge_fill() {
  NodeType type;
  type.name = "edge_fill";
  type.family = "key";
  type.help = "Carries colour outwards over transparent pixels, and below soft edges.";
  type.inputs = {{"image", true, "What to fill, premultiplied."}};
  type.knobs = {
      number("size", 2, "The smallest patch of colour that is carried on; larger is smoother.")
          .within(2, 1024)
          .in_pixels(),
      number("trust", 0, "Alpha up to which a pixel's own colour is not used.").within(0, 0.99),
      choice("output", "filled", {"filled", "edges"},
             "Opaque colour everywhere, or the image's own alpha with its edges' colour mended."),
  };
  type.operation = std::make_shared<EdgeFill>();
  return type;
}

}  // namespace

std::vector<NodeType> key_family() {
  return {range_key(), screen_key(), edge_fill()};
}

}  // namespace host::nodes
