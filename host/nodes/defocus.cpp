#include "host/nodes/families.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// A lens that is focused on one depth. The image is taken apart into layers by how large their discs
// are, five behind the focus and five in front of it; each is blurred as `disc_blur` does, a large disc on a
// smaller image, and they are put together from the nearest on.

namespace host::nodes {
namespace {

constexpr int levels = 5;

// Of the layers of one level: their disc's radius, and on how much smaller an image they are blurred.
struct Level {
  double radius;
  int factor = 1;

  Level(double largest, int level) : radius(largest * level * level / (levels * levels)) {
    while (radius / (2 * factor) >= 4) factor *= 2;
  }
};

class Defocus final : public Operation {
 public:
  Extent extent(const Call& call, std::span<const Extent> inputs) const override {
    const bool repeats = call.knobs.text("edges") == "repeat";
    return {inputs[0].format, repeats ? inputs[0].window : grown(inputs[0].window, reach(call.knobs))};
  }

  Image render(const Call& call, std::span<const Image> inputs, const Extent& extent,
               RenderContext& context) const override {
    const Knobs& knobs = call.knobs;
    const double largest = knobs.number("size");
    if (!inputs[0].texture || !inputs[1].texture || largest < 0.5) return inputs[0];
    const Extent work{extent.format, grown(inputs[0].extent.window, reach(knobs))};
    const Image image = context.windowed(inputs[0], work.window, knobs.text("edges") == "repeat");
    const Image sizes = sizes_of(knobs, inputs[1], work, context);

    constexpr std::array behind = {"u_back1", "u_back2", "u_back3", "u_back4", "u_back5"};
    constexpr std::array before = {"u_front1", "u_front2", "u_front3", "u_front4", "u_front5"};
    constexpr std::array factors = {"u_factor1", "u_factor2", "u_factor3", "u_factor4", "u_factor5"};
    std::vector<Uniform> uniforms;
    std::vector<Input> images = {{"u_image", image}, {"u_levels", sizes}};
    for (int at = 1; at <= levels; ++at) {
      const Level level(largest, at);
      const auto place = static_cast<size_t>(at - 1);
      uniforms.emplace_back(factors.at(place), static_cast<double>(level.factor));
      images.emplace_back(behind.at(place), layer(level, at, false, image, sizes, context).texture);
      images.emplace_back(before.at(place), layer(level, -at, false, image, sizes, context).texture);
    }
    images.emplace_back("u_nothing", layer({largest, levels}, 0, true, image, sizes, context).texture);
    Image result = context.make(extent);
    context.draw("defocus.frag", result, uniforms, images);
    return result;
  }

 private:
  static int64_t reach(const Knobs& knobs) {
    return static_cast<int64_t>(std::ceil(knobs.number("size")));
  }

  static Image sizes_of(const Knobs& knobs, const Image& depth, const Extent& extent,
                        RenderContext& context) {
    const int channel = knobs.choice("depth_channel");
    const Uniform uniforms[] = {{"u_channel", static_cast<double>(channel)},
                                {"u_focus", knobs.number("focus")},
                                {"u_slack", knobs.number("slack")},
                                {"u_distance", knobs.number("distance")},
                                {"u_lens", knobs.text("curve") == "lens" ? 1.0 : 0.0},
                                {"u_levels", static_cast<double>(levels)}};
    const Input images[] = {{"u_depth", depth}};
    Image sizes = context.make(extent);
    context.draw("defocus_size.frag", sizes, uniforms, images);
    return sizes;
  }

  // What the image has at a level, or its transparency, blurred.
  static Image layer(const Level& level, int at, bool nothing, const Image& image, const Image& sizes,
                     RenderContext& context) {
    const auto cells = [&](int64_t pixels) { return (pixels + level.factor - 1) / level.factor; };
    const Box& window = image.extent.window;
    const Extent extent{image.extent.format, {0, 0, cells(box_width(window)), cells(box_height(window))}};
    const Uniform uniforms[] = {{"u_level", static_cast<double>(at)},
                                {"u_factor", static_cast<double>(level.factor)},
                                {"u_nothing", nothing ? 1.0 : 0.0}};
    const Input images[] = {{"u_image", image}, {"u_levels", sizes}};
    const Image taken[] = {context.make(extent)};
    context.draw("defocus_layer.frag", taken[0], uniforms, images);
    const double radius = level.radius / level.factor;
    if (radius < 0.5) return taken[0];
    Image blurred = context.make(extent);
    const double params[] = {radius, radius, 0};
    return context.filter("disc", taken, params, blurred) ? blurred : taken[0];
  }
};

}  // namespace

std::vector<NodeType> defocus_family() {
  NodeType type;
  type.name = "defocus";
  type.family = "filter";
  type.help = "Blurs by depth, as a lens does that is focused on one distance.";
  type.inputs = {{"image", true, "What to blur."},
                 {"depth", true, "How far away each of its pixels is; larger is further."}};
  type.knobs = {
      number("focus", 1, "The depth that is sharp."),
      number("slack", 0, "How far before and behind it all is sharp.").within(0, 1e9),
      number("size", 10, "Radius of the largest disc in pixels.").within(0, 500).in_pixels(),
      choice("curve", "lens", {"lens", "straight"},
             "How discs grow: as a lens draws, by (depth - focus) / depth of the size, or straight, up to "
             "the size at `distance`."),
      number("distance", 1, "How far from the sharp depths the largest disc is, for straight.")
          .within(0, 1e9),
      choice("depth_channel", "red", {"red", "green", "blue", "alpha"}, "Channel of the depth."),
      choice("edges", "transparent", {"transparent", "repeat"},
             "What lies beyond the image: nothing, or its edge pixels again and again."),
  };
  type.operation = std::make_shared<Defocus>();
  return {std::move(type)};
}

}  // namespace host::nodes
