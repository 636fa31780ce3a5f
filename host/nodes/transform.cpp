#include <qv/xform/crop.h>

#include "host/base/linear_algebra.h"
#include "host/node/pending_transform.h"
#include "host/nodes/families.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <span>
#include <stdexcept>
#include <utility>
#include <vector>

// Images moved, turned, scaled and bent. A node only says how: neighbours are folded into one
// resampling, which happens when somebody needs the pixels. Each may blur by its own motion.

namespace host::nodes {
namespace {

namespace xform = qv::xform;

// Both components of a pair of which one number may have been given for both.
std::array<double, 2> pair(const Knobs& knobs, const char* name) {
  const std::vector<double> given = knobs.numbers(name);
  return {given[0], given.size() > 1 ? given[1] : given[0]};
}

// Open for no time where nothing moves.
Shutter shutter_of(const Call& call) {
  const Knobs& knobs = call.knobs;
  Shutter shutter;
  shutter.quality = knobs.number("motion_blur");
  if (shutter.quality == 0 || !call.node.animated()) return {};
  shutter.frame = static_cast<double>(call.frame);
  shutter.width = knobs.number("shutter");
  const double opens[] = {-shutter.width / 2, 0, -shutter.width, knobs.number("shutter_offset")};
  shutter.open = opens[knobs.choice("shutter_position")];
  return shutter;
}

// What transform, reformat and corner_pin share: everything but their steps.
class Transform : public Operation {
 public:
  void identify(const Call& call, Identity& identity) const override {
    if (shutter_of(call).width == 0) return;
    // Beside the knobs at the frame it sees those of every other time at which the shutter is open.
    identity.add(call.frame);
    for (const KnobValue& knob : call.knobs.values()) {
      for (const KnobComponent& component : knob.components) identity.add(component.curve_id);
    }
  }

  Extent extent(const Call& call, std::span<const Extent> inputs) const override {
    const Format& from = inputs[0].format;
    const std::vector<TransformLink> links = links_of(call, from);
    try {
      const xform::Total total = total_of(links, from);
      const Format format{total.width, total.height, pixel_aspect(call.knobs, from)};
      return {format, placement(links, inputs[0], filter_of(call), shutter_of(call))};
    } catch (const std::invalid_argument&) {  // a coordinate that is not a number
      throw std::runtime_error("these knobs put the image where there are no pixels");
    } catch (const std::overflow_error&) {
      throw std::runtime_error("these knobs put the image further away than pixels are counted");
    }
  }

  Image render(const Call& call, std::span<const Image> inputs, const Extent& extent,
               RenderContext& context) const override {
    const std::vector<TransformLink> links = links_of(call, inputs[0].extent.format);
    const Shutter shutter = shutter_of(call);
    const Fit fit = node::fit(links, inputs[0].extent, shutter);
    const Image image = folds(inputs[0], shutter, fit) ? inputs[0] : settle(inputs[0], context);
    if (!image.texture) return context.make({extent.format, {}});

    auto chain = image.pending ? std::make_shared<PendingTransform>(*image.pending)
                               : std::make_shared<PendingTransform>();
    if (!image.pending) chain->source = image.extent;
    if (!fit.exact) chain->clip_from = chain->links.size();
    if (!fit.exact || !image.pending) chain->filter = filter_of(call);
    chain->links.insert(chain->links.end(), links.begin(), links.end());
    if (shutter.width > 0) chain->shutter = shutter;
    chain->cuts |= fit.cuts;
    return {extent, image.texture, std::move(chain)};
  }

 protected:
  // The step vectors at the knobs' time, first one first.
  virtual std::vector<std::vector<double>> steps(const Knobs& knobs, const Format& format,
                                                 const Project& project) const = 0;
  virtual double pixel_aspect(const Knobs& /*knobs*/, const Format& format) const {
    return format.pixel_aspect;
  }

 private:
  static Resampling filter_of(const Call& call) {
    return static_cast<Resampling>(call.knobs.choice("filter"));
  }

  // Whether the node may join the chain that its image is waiting for. Two shutters cannot be followed
  // at once; and what a chain has cut off shows again at an edge that no longer lies between pixels.
  static bool folds(const Image& image, const Shutter& shutter, const Fit& fit) {
    if (!image.pending) return true;
    const PendingTransform& chain = *image.pending;
    const bool one_shutter = shutter.width == 0 || chain.shutter.width == 0 || shutter == chain.shutter;
    return one_shutter && (!chain.cuts || fit.exact);
  }

  std::vector<TransformLink> links_of(const Call& call, const Format& format) const {
    std::vector<TransformLink> links;
    for (std::vector<double>& step : steps(call.knobs, format, call.project)) {
      links.push_back({std::move(step), nullptr});
    }
    if (shutter_of(call).width == 0) return links;
    // Copies: the image may be kept for longer than the composition that it was made for.
    const auto values = std::make_shared<const std::vector<node::KnobValue>>(call.knobs.values().begin(),
                                                                             call.knobs.values().end());
    const std::span<const node::KnobSpec> specs = call.knobs.specs();  // of the catalogue
    for (size_t i = 0; i < links.size(); ++i) {
      links[i].at = [this, values, specs, scale = call.knobs.scale(), format, project = call.project,
                     i](double time) {
        return steps(Knobs(specs, *values, time, scale), format, project)[i];
      };
    }
    return links;
  }
};

std::vector<double> scale_step(double x, double y) {
  return {0, 0, 0, 0, x, y, 0, 0, 0, 0, 0, 0};
}

class Affine final : public Transform {
  std::vector<std::vector<double>> steps(const Knobs& knobs, const Format& format,
                                         const Project& /*project*/) const override {
    const auto [x, y] = pair(knobs, "translate");
    const auto [scale_x, scale_y] = pair(knobs, "scale");
    const double aspect = format.pixel_aspect;
    const double centre_x = static_cast<double>(format.width) / 2 + knobs.number("center", 0);
    const double centre_y = static_cast<double>(format.height) / 2 + knobs.number("center", 1);
    std::vector<double> step = {0,
                                x * aspect,
                                y,
                                knobs.number("rotate"),
                                scale_x,
                                scale_y,
                                knobs.number("skew", 0),
                                knobs.number("skew", 1),
                                static_cast<double>(knobs.choice("skew_order")),
                                centre_x * aspect,
                                centre_y,
                                knobs.flag("invert") ? 1.0 : 0.0};
    if (aspect == 1) return {std::move(step)};
    // A circle stays a circle when it is turned as it is seen, not as it is stored.
    return {scale_step(aspect, 1), std::move(step), scale_step(1 / aspect, 1)};
  }
};

class Reformat final : public Transform {
  std::vector<std::vector<double>> steps(const Knobs& knobs, const Format& format,
                                         const Project& project) const override {
    const auto [scale_x, scale_y] = pair(knobs, "scale");
    const double relative = pixel_aspect(knobs, format) / format.pixel_aspect;
    const bool to_format = knobs.text("to") == "format";
    const double width = side(knobs.number("size", 0), project.format.width);
    const double height = side(knobs.number("size", 1), project.format.height);
    const auto flag = [&](const char* name) { return knobs.flag(name) ? 1.0 : 0.0; };
    return {{1, static_cast<double>(knobs.choice("to")),
             // to a format
             width, height, to_format ? relative : 1,
             // to a box
             width, height, knobs.number("size", 1) > 0 ? 1.0 : 0.0, 1,
             // by a scale
             scale_x, scale_y, static_cast<double>(knobs.choice("resize")), flag("center"), flag("flip"),
             flag("flop"), flag("turn"), flag("keep_outside")}};
  }

  double pixel_aspect(const Knobs& knobs, const Format& format) const override {
    return knobs.text("to") == "format" ? knobs.number("pixel_aspect") : format.pixel_aspect;
  }

  static double side(double given, int64_t otherwise) {
    return given > 0 ? std::max(1.0, std::floor(given + 0.5)) : static_cast<double>(otherwise);
  }
};

class CornerPin final : public Transform {
  std::vector<std::vector<double>> steps(const Knobs& knobs, const Format& format,
                                         const Project& /*project*/) const override {
    std::vector<double> to = points(knobs, "to", format);
    std::vector<double> from = points(knobs, "from", format);
    const bool corners = all_zero(knobs.numbers("from"));
    if (corners) from.resize(to.size());
    if (from.size() != to.size()) {
      throw std::runtime_error("knob \"from\": expected as many points as in \"to\", " +
                               std::to_string(to.size() / 2) + ", found " + std::to_string(from.size() / 2));
    }
    const size_t count = to.size() / 2;
    std::vector<double> step = {2, knobs.flag("invert") ? 1.0 : 0.0, static_cast<double>(count)};
    step.insert(step.end(), from.begin(), from.end());
    step.insert(step.end(), to.begin(), to.end());
    for (int i = 0; i < 16; ++i) step.push_back(i % 5 == 0 ? 1 : 0);
    return {std::move(step)};
  }

  static bool all_zero(const std::vector<double>& values) {
    return std::all_of(values.begin(), values.end(), [](double value) { return value == 0; });
  }

  static std::vector<double> points(const Knobs& knobs, const char* name, const Format& format) {
    std::vector<double> given = knobs.numbers(name);
    const auto width = static_cast<double>(format.width);
    const auto height = static_cast<double>(format.height);
    if (all_zero(given)) return {0, 0, width, 0, width, height, 0, height};
    if (given.size() % 2 == 0) return given;
    throw std::runtime_error(std::string("knob \"") + name + "\": expected pairs of x and y, found " +
                             std::to_string(given.size()) + " numbers");
  }
};

NodeType transform_type(std::string name, std::string help, std::vector<KnobSpec> knobs,
                        std::shared_ptr<const Operation> operation) {
  NodeType type;
  type.name = std::move(name);
  type.family = "transform";
  type.help = std::move(help);
  type.inputs = {{"image", true, "What to transform."}};
  type.knobs = std::move(knobs);
  type.knobs.push_back(choice("filter", "cubic", {"nearest", "bilinear", "cubic"},
                              "How pixels between pixels are found; cubic is the sharpest. Where the "
                              "image shrinks, all but nearest take the mean of what a pixel covers."));
  type.knobs.push_back(
      number("motion_blur", 0, "Samples a pixel of travel; 0: none, 1: smooth, at most 128 samples.")
          .within(0, 100));
  type.knobs.push_back(number("shutter", 0.5, "How long the shutter is open, in frames.").within(0, 100));
  type.knobs.push_back(choice("shutter_position", "centered", {"centered", "start", "end", "custom"},
                              "Where the frame lies in the time that the shutter is open."));
  type.knobs.push_back(
      number("shutter_offset", 0, "When the shutter opens, in frames from the frame, for custom."));
  type.operation = std::move(operation);
  type.takes_pending = true;
  return type;
}

NodeType transform() {
  return transform_type(
      "transform", "Skews, scales and turns the image about a centre, then moves it.",
      {numbers("translate", {0, 0}, "How far to move, to the right and up.").in_pixels(),
       number("rotate", 0, "Degrees, counter-clockwise."),
       numbers("scale", {1, 1}, "Factors to the sides and up.").at_least(1),
       numbers("skew", {0, 0}, "How far to lean, to the right and up, a pixel of distance."),
       choice("skew_order", "xy", {"xy", "yx"}, "Which of both leans first."),
       numbers("center", {0, 0}, "The point that stays, from the middle of the image's format.").in_pixels(),
       flag("invert", false, "Undoes the transform instead.")},
      std::make_shared<Affine>());
}

NodeType reformat() {
  NodeType type = transform_type(
      "reformat", "Fits the image into another format.",
      {choice("to", "format", {"format", "box", "scale"},
              "What the new format is: given, or made to keep the image's proportions, or a multiple."),
       numbers("size", {0, 0},
               "Width and height, for format and box. 0: the composition's; a box of height 0 follows "
               "the image's proportions.")
           .within(0, 1000000)
           .in_pixels(),
       number("pixel_aspect", 1, "A pixel's width over its height, for format.").within(0.01, 100),
       numbers("scale", {1, 1}, "Factors to the sides and up, for scale.").within(0, 1000).at_least(1),
       choice("resize", "fit", {"none", "width", "height", "fit", "fill", "distort"},
              "What the image is scaled to; fit: all of it shows, fill: no border shows."),
       flag("center", true, "Puts the image in the middle, else in the lower left corner."),
       flag("flip", false, "Mirrors upside down."), flag("flop", false, "Mirrors left to right."),
       flag("turn", false, "Turns by 90 degrees, counter-clockwise."),
       flag("keep_outside", false, "Keeps what lies outside the new format.")},
      std::make_shared<Reformat>());
  type.changes = -1;
  return type;
}

NodeType corner_pin() {
  return transform_type(
      "corner_pin", "Moves points of the image to other places and bends the rest accordingly.",
      {numbers("to", {0, 0, 0, 0, 0, 0, 0, 0},
               "Where the points shall be, x and y each: one moves, two turn and scale, three skew, four "
               "give perspective. All 0: the corners of the format.")
           .at_least(2)
           .in_pixels(),
       numbers("from", {0, 0, 0, 0, 0, 0, 0, 0},
               "Where the points are. All 0: the corners of the format, counter-clockwise from the lower "
               "left.")
           .at_least(2)
           .in_pixels(),
       flag("invert", false, "Undoes the transform instead.")},
      std::make_shared<CornerPin>());
}

class Crop final : public Operation {
 public:
  Extent extent(const Call& call, std::span<const Extent> inputs) const override {
    const xform::CropPlan plan = plan_of(call, inputs[0]);
    const Format format{plan.format[0], plan.format[1], inputs[0].format.pixel_aspect};
    if (plan.box[2] <= plan.box[0] || plan.box[3] <= plan.box[1]) return {format, {}};
    return {format, intersection(plan.window, moved(inputs[0].window, plan))};
  }

  Image render(const Call& call, std::span<const Image> inputs, const Extent& extent,
               RenderContext& context) const override {
    const xform::CropPlan plan = plan_of(call, inputs[0].extent);
    Image image = inputs[0];
    image.extent = {extent.format, moved(image.extent.window, plan)};
    const double soft = call.knobs.number("soft");
    const bool sharp =
        std::all_of(plan.box.begin(), plan.box.end(), [](double edge) { return edge == std::floor(edge); });
    if (sharp && soft == 0) return context.windowed(image, extent.window);

    // From the plan's window to the result's, which is only what the image has pixels in.
    const auto left = static_cast<double>(extent.window[0] - plan.window[0]);
    const auto top = static_cast<double>(plan.window[3] - extent.window[3]);
    const Uniform uniforms[] = {
        {"u_rectangle",
         {plan.local[0] - left, plan.local[1] - top, plan.local[2] - left, plan.local[3] - top}},
        {"u_soft", soft}};
    const Input images[] = {{"u_image", image}};
    Image result = context.make(extent);
    context.draw("crop.frag", result, uniforms, images);
    return result;
  }

 private:
  static xform::CropPlan plan_of(const Call& call, const Extent& input) {
    const Knobs& knobs = call.knobs;
    std::vector<double> box = knobs.numbers("box");
    const Format& format = input.format;
    if (std::all_of(box.begin(), box.end(), [](double edge) { return edge == 0; })) {
      box = {0, 0, static_cast<double>(format.width), static_cast<double>(format.height)};
    }
    return xform::crop_plan(box[0], box[1], box[2], box[3], false, input.window, knobs.flag("reformat"),
                            format.width, format.height);
  }

  // A window moved as the plan moves its pixels.
  static Box moved(const Box& window, const xform::CropPlan& plan) {
    const int64_t x = plan.window[0] - plan.pixels[0];
    const int64_t y = plan.window[1] - plan.pixels[1];
    return {window[0] + x, window[1] + y, window[2] + x, window[3] + y};
  }
};

NodeType crop() {
  NodeType type;
  type.name = "crop";
  type.family = "transform";
  type.help = "Makes everything outside a rectangle transparent.";
  type.changes = -1;
  type.inputs = {{"image", true, "What to crop."}};
  type.knobs = {
      numbers("box", {0, 0, 0, 0}, "Left, lower, right and upper edge; all 0: the image's format.")
          .in_pixels(),
      number("soft", 0, "Over how many pixels the image fades towards the edges.")
          .within(0, 100000)
          .in_pixels(),
      flag("reformat", false, "Makes the rectangle the format, its lower left corner the origin."),
  };
  type.operation = std::make_shared<Crop>();
  return type;
}

}  // namespace

std::vector<NodeType> transform_family() {
  // Nothing can be asked of a transform before its type is known.
  install_linear_algebra();
  return {transform(), reformat(), corner_pin(), crop()};
}

}  // namespace host::nodes
