#include <qv/nodes/filter/ops.h>

#include "host/nodes/families.h"

#include <algorithm>
#include <cmath>
#include <utility>

// Blurs and what is made of them. All of them see an image that goes on beyond its window: with
// transparent black, for which the window grows by as far as the filter reaches, or, where `edges` is
// "repeat", with its edge pixels, and the window stays.

namespace host::nodes {
namespace {

namespace filter = qv::nodes::filter;

// How far a filter carries pixels, to the sides and up or down.
struct Reach {
  int64_t x = 0;
  int64_t y = 0;
};

int64_t whole_pixels(double value) {
  return static_cast<int64_t>(std::ceil(std::min(std::max(value, 0.0), 1e6)));
}

KnobSpec edges_knob() {
  return choice("edges", "transparent", {"transparent", "repeat"},
                "What lies beyond the image: nothing, or its edge pixels again and again.");
}

// The knobs that all filters with a blur inside share.
std::vector<KnobSpec> blur_knobs(double size) {
  return {
      numbers("size", {size, size},
              "Blur width s in pixels, to the sides and up: a Gaussian of sigma s/2 (cut at 1.5 s), a box of "
              "width s, a "
              "triangle reaching s and a quadratic curve reaching 1.5 s to each side.")
          .within(0, 100000)
          .at_least(1)
          .in_pixels(),
      choice("kernel", "gaussian", {"box", "triangle", "quadratic", "gaussian"}, "Shape of the blur."),
      integer("limit", 64, "Wider blurs are computed on a smaller image; 0: never.").within(0, 100000),
  };
}

struct BlurKnobs {
  double x;
  double y;
  int kernel;
  int limit;

  explicit BlurKnobs(const Knobs& knobs)
      : x(knobs.number("size", 0)),
        y(knobs.numbers("size").size() > 1 ? knobs.number("size", 1) : x),
        kernel(knobs.choice("kernel")),
        limit(static_cast<int>(knobs.integer("limit"))) {}

  Reach reach() const {
    return {reach_of(x), reach_of(y)};
  }

  // The first eight parameters of every operation with a blur. The library's boxes have y down.
  std::vector<double> params(const Box& window) const {
    return {x,
            y,
            static_cast<double>(kernel),
            static_cast<double>(limit),
            static_cast<double>(window[0]),
            static_cast<double>(-window[3]),
            static_cast<double>(window[2]),
            static_cast<double>(-window[1])};
  }

 private:
  int64_t reach_of(double size) const {
    const int factor = filter::factor(size, limit);
    const int64_t radius = filter::radius(size / factor, kernel);
    // A cell of the smaller image may begin a cell before the window.
    return factor == 1 ? radius : (radius + 1) * factor;
  }
};

// An operation of the filter layer on one image.
class Filter : public Operation {
 public:
  Extent extent(const Call& call, std::span<const Extent> inputs) const override {
    const Reach reach = call.knobs.text("edges") == "repeat" ? Reach{} : this->reach(call.knobs);
    const Box& window = inputs[0].window;
    if (is_empty(window)) return inputs[0];
    return {inputs[0].format,
            {window[0] - reach.x, window[1] - reach.y, window[2] + reach.x, window[3] + reach.y}};
  }

  Image render(const Call& call, std::span<const Image> inputs, const Extent& extent,
               RenderContext& context) const override {
    if (does_nothing(call.knobs)) return inputs[0];
    const Image image[] = {context.windowed(inputs[0], extent.window)};
    Image result = context.make(extent);
    return context.filter(name(), image, params(call.knobs, extent.window), result) ? result : image[0];
  }

 protected:
  virtual std::string_view name() const = 0;
  virtual Reach reach(const Knobs& knobs) const = 0;
  virtual std::vector<double> params(const Knobs& knobs, const Box& window) const = 0;
  virtual bool does_nothing(const Knobs& /*knobs*/) const {
    return false;
  }
};

class Blur final : public Filter {
  std::string_view name() const override {
    return "blur";
  }
  Reach reach(const Knobs& knobs) const override {
    return BlurKnobs(knobs).reach();
  }
  std::vector<double> params(const Knobs& knobs, const Box& window) const override {
    return BlurKnobs(knobs).params(window);
  }
  bool does_nothing(const Knobs& knobs) const override {
    const Reach all = BlurKnobs(knobs).reach();
    return all.x == 0 && all.y == 0;
  }
};

class Glow final : public Filter {
  std::string_view name() const override {
    return "glow";
  }
  Reach reach(const Knobs& knobs) const override {
    return BlurKnobs(knobs).reach();
  }
  std::vector<double> params(const Knobs& knobs, const Box& window) const override {
    std::vector<double> all = BlurKnobs(knobs).params(window);
    all.push_back(knobs.number("tolerance"));
    for (size_t i = 0; i < 3; ++i) all.push_back(knobs.number("tint", i));
    all.push_back(knobs.number("brightness"));
    all.push_back(knobs.number("saturation"));
    all.push_back(knobs.flag("effect_only") ? 1 : 0);
    return all;
  }
};

// A matte or picture made larger or smaller: grows its window by what it grows, and needs one
// transparent pixel around it to see an edge when it shrinks.
class Morphology : public Filter {
 protected:
  static Reach reach_of(double amount, int64_t soft) {
    if (amount == 0 && soft == 0) return {};
    const int64_t by = (amount > 0 ? whole_pixels(amount) : 0) + soft + 1;
    return {by, by};
  }
};

class Dilate final : public Morphology {
  std::string_view name() const override {
    return "dilate";
  }
  Reach reach(const Knobs& knobs) const override {
    return reach_of(knobs.number("amount"), 0);
  }
  std::vector<double> params(const Knobs& knobs, const Box& /*window*/) const override {
    return {knobs.number("amount")};
  }
  bool does_nothing(const Knobs& knobs) const override {
    return knobs.number("amount") == 0;
  }
};

class FilterErode final : public Morphology {
  std::string_view name() const override {
    return "filter_erode";
  }
  Reach reach(const Knobs& knobs) const override {
    const double amount = knobs.number("amount");
    // The soft kernels reach further than the amount.
    const int radius = filter::radius(2 * std::abs(amount) + 1, knobs.choice("kernel"));
    return reach_of(amount > 0 ? radius : amount, 0);
  }
  std::vector<double> params(const Knobs& knobs, const Box& /*window*/) const override {
    return {knobs.number("amount"), static_cast<double>(knobs.choice("kernel"))};
  }
  bool does_nothing(const Knobs& knobs) const override {
    return knobs.number("amount") == 0;
  }
};

class Erode final : public Morphology {
  std::string_view name() const override {
    return "erode";
  }
  Reach reach(const Knobs& knobs) const override {
    return reach_of(knobs.number("amount"), filter::radius(knobs.number("soft"), 3));
  }
  std::vector<double> params(const Knobs& knobs, const Box& window) const override {
    return {knobs.number("amount"),
            knobs.number("soft"),
            static_cast<double>(knobs.integer("limit")),
            static_cast<double>(window[0]),
            static_cast<double>(-window[3]),
            static_cast<double>(window[2]),
            static_cast<double>(-window[1])};
  }
  bool does_nothing(const Knobs& knobs) const override {
    return knobs.number("amount") == 0 && filter::radius(knobs.number("soft"), 3) == 0;
  }
};

class DiscBlur final : public Filter {
  std::string_view name() const override {
    return "disc";
  }
  Reach reach(const Knobs& knobs) const override {
    const auto [x, y] = radii(knobs);
    if (std::max(x, y) < 0.5) return {};
    return {whole_pixels(x), whole_pixels(y)};
  }
  std::vector<double> params(const Knobs& knobs, const Box& /*window*/) const override {
    const auto [x, y] = radii(knobs);
    return {x, y, knobs.flag("direct") ? 1.0 : 0.0};
  }
  bool does_nothing(const Knobs& knobs) const override {
    const auto [x, y] = radii(knobs);
    return std::max(x, y) < 0.5;
  }

  static std::pair<double, double> radii(const Knobs& knobs) {
    const std::vector<double> both = knobs.numbers("radius");
    return {both[0], both.size() > 1 ? both[1] : both[0]};
  }
};

// Filters that keep their image's window: beyond it they see its edge pixels.
class Sharpen final : public Operation {
 public:
  Image render(const Call& call, std::span<const Image> inputs, const Extent& extent,
               RenderContext& context) const override {
    if (!inputs[0].texture) return inputs[0];
    std::vector<double> params = BlurKnobs(call.knobs).params(extent.window);
    for (const char* knob : {"amount", "least", "most"}) params.push_back(call.knobs.number(knob));
    Image result = context.make(extent);
    return context.filter("sharpen", inputs.first(1), params, result) ? result : inputs[0];
  }
};

class EdgeBlur final : public Operation {
 public:
  Image render(const Call& call, std::span<const Image> inputs, const Extent& extent,
               RenderContext& context) const override {
    if (!inputs[0].texture) return inputs[0];
    const bool has_matte = call.node.inputs[1] >= 0;
    const Image matte = has_matte ? inputs[1].texture ? context.windowed(inputs[1], extent.window)
                                                      : context.solid(extent, {0, 0, 0, 0})
                                  : inputs[0];
    const Image images[] = {inputs[0], matte};
    std::vector<double> params = BlurKnobs(call.knobs).params(extent.window);
    params.push_back(call.knobs.choice("channel"));
    params.push_back(call.knobs.number("edge"));
    for (size_t i = 0; i < 3; ++i) params.push_back(call.knobs.number("tint", i));
    params.push_back(call.knobs.number("brightness"));
    Image result = context.make(extent);
    return context.filter("edgeblur", images, params, result) ? result : inputs[0];
  }
};

NodeType filter_type(std::string name, std::string help, std::vector<KnobSpec> knobs,
                     std::shared_ptr<const Operation> operation, std::string channels = "rgba") {
  NodeType type;
  type.name = std::move(name);
  type.family = "filter";
  type.help = std::move(help);
  type.inputs = {{"image", true, "What to filter."}};
  type.knobs = std::move(knobs);
  type.operation = std::move(operation);
  type.changed_channels = std::move(channels);
  return type;
}

std::vector<KnobSpec> joined(std::vector<KnobSpec> first, std::vector<KnobSpec> second) {
  for (KnobSpec& spec : second) first.push_back(std::move(spec));
  return first;
}

KnobSpec amount_knob() {
  return number("amount", 1, "By how many pixels to grow; negative: to shrink.")
      .within(-2000, 2000)
      .in_pixels();
}

NodeType glow() {
  return filter_type(
      "glow", "Adds the blurred light of bright places.",
      joined(blur_knobs(15), {number("tolerance", 0, "Only what is brighter than this glows."),
                              numbers("tint", {1, 1, 1}, "Colour that the glow is multiplied by."),
                              number("brightness", 1, "Strength of the glow."),
                              number("saturation", 1, "Colourfulness of the glow; 0: grey."),
                              flag("effect_only", false, "Leaves the image itself out."), edges_knob()}),
      std::make_shared<Glow>());
}

NodeType sharpen() {
  return filter_type("sharpen", "Raises the difference between the image and its blur.",
                     joined(blur_knobs(3), {number("amount", 1, "How much of the difference to add."),
                                            number("least", -1, "Smallest difference that counts."),
                                            number("most", 1, "Largest difference that counts.")}),
                     std::make_shared<Sharpen>());
}

NodeType edge_blur() {
  NodeType type =
      filter_type("edge_blur", "Blurs the image along the edges of a matte.",
                  joined(blur_knobs(3), {choice("channel", "alpha", {"red", "green", "blue", "alpha"},
                                                "Channel of the matte whose edges count."),
                                         number("edge", 1, "Multiplies the found edge."),
                                         numbers("tint", {1, 1, 1}, "Colour that the blur is multiplied by."),
                                         number("brightness", 1, "Strength of the blur.")}),
                  std::make_shared<EdgeBlur>());
  type.inputs.push_back({"matte", false, "Where the edges are; the image itself when not connected."});
  return type;
}

}  // namespace

std::vector<NodeType> filter_family() {
  const KnobSpec kernel = choice("kernel", "box", {"box", "triangle", "quadratic", "gaussian"},
                                 "Shape: box is hard, the others ever softer.");
  const KnobSpec limit =
      integer("limit", 64, "Wider blurs are computed on a smaller image; 0: never.").within(0, 100000);
  return {
      filter_type("blur", "Blurs the image.", joined(blur_knobs(10), {edges_knob()}),
                  std::make_shared<Blur>()),
      glow(),
      sharpen(),
      filter_type("dilate", "Spreads the largest value of a matte around each pixel, or the smallest.",
                  {amount_knob(), edges_knob()}, std::make_shared<Dilate>(), "alpha"),
      filter_type("filter_erode", "Grows or shrinks a matte with a soft kernel.",
                  {amount_knob(), kernel, edges_knob()}, std::make_shared<FilterErode>(), "alpha"),
      filter_type(
          "erode", "Moves the edges of a matte by parts of a pixel and softens them.",
          {amount_knob(), number("soft", 0, "Blur width of the moved edge.").within(0, 10000).in_pixels(),
           limit, edges_knob()},
          std::make_shared<Erode>(), "alpha"),
      edge_blur(),
      filter_type("disc_blur", "Blurs as a lens out of focus does.",
                  {numbers("radius", {10, 10}, "Radius in pixels, to the sides and up.")
                       .within(0, 2000)
                       .at_least(1)
                       .in_pixels(),
                   flag("direct", false, "Sums every pixel: slower, and exact beside very bright ones."),
                   edges_knob()},
                  std::make_shared<DiscBlur>()),
  };
}

}  // namespace host::nodes
