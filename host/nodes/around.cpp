#include "host/nodes/around.h"

#include "host/node/pending_transform.h"
#include "host/nodes/drawn.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace host::nodes {
namespace {

using namespace node;

// How much of a node's result is seen, as its knobs and connections say.
struct Share {
  double mix;
  bool masked;
  bool inverted;
  int mask_channel;
  std::string channels;

  Share(const Call& call, size_t mask)
      : mix(call.knobs.number("mix")),
        masked(call.node.inputs[mask] >= 0),
        inverted(call.knobs.flag("invert_mask")),
        mask_channel(call.knobs.choice("mask_channel")),
        channels(call.knobs.text("channels")) {}

  bool none() const {
    return mix == 0;
  }
  bool all() const {
    return mix == 1 && !masked && channels == "rgba";
  }
  bool alpha_alone() const {
    return mix == 1 && !masked && channels == "alpha";
  }
  // Images that are read beside the node's own: what it changes, and the mask.
  size_t images() const {
    return all() ? 0 : !none() && masked ? 2 : 1;
  }
};

std::array<double, 4> factors(const std::string& channels) {
  const auto has = [&channels](const char* name) {
    return channels == name || channels == "rgba" ? 1.0 : 0.0;
  };
  const double rgb = channels == "rgb" ? 1 : 0;
  return {std::max(rgb, has("red")), std::max(rgb, has("green")), std::max(rgb, has("blue")), has("alpha")};
}

bool is_same(const Image& a, const Image& b) {
  return a.texture == b.texture && a.extent.window == b.extent.window && !a.pending && !b.pending;
}

bool covers(const Box& outer, const Box& inner) {
  return hull(outer, inner) == outer;
}

// The text of a program with shaders/host/around.glsl behind it, which takes over from its main().
std::string surrounded(const std::string& text, const std::string& defines) {
  const size_t end = text.find('\n') + 1;
  return text.substr(0, end) + "#define main operation\n" + text.substr(end) + "#undef main\n" + defines +
         "#include \"around.glsl\"\n";
}

// Draws what a node would, held to its share.
Image shown(Drawing drawing, const Share& share, const Image& base, const Image& mask, const Extent& extent,
            RenderContext& context) {
  // Read through the sampler that the program has for it, the image is read once.
  std::string sampler = "u_base";
  for (const Input& each : drawing.images)
    if (each.image && is_same(*each.image, base)) sampler = each.name;
  std::string defines = "#define BASE " + sampler + "\n#define BASE_WINDOW " + sampler + "_window\n";
  if (sampler == "u_base") {
    defines += "uniform sampler2D u_base;\nuniform vec4 u_base_window;\n";
    drawing.images.emplace_back("u_base", base);
  }
  if (share.masked) {
    const bool values = share.mask_channel == 3 && !mask.coverage;  // of data
    defines += "#define MASK_CHANNEL " + std::to_string(values ? 0 : share.mask_channel) + "\n";
    if (covers(mask.extent.window, extent.window)) defines += "#define MASK_COVERS\n";
    drawing.images.emplace_back("u_around_mask", mask);
  }
  const bool follows = share.channels == "alpha" && base.coverage;
  const bool whole = share.channels == "alpha" || share.channels == "rgba";
  drawing.uniforms.emplace_back("u_around_mix", share.mix);
  drawing.uniforms.emplace_back("u_around_invert", share.inverted ? 1.0 : 0.0);
  drawing.uniforms.emplace_back("u_around_channels", factors(whole ? "rgba" : share.channels));
  drawing.uniforms.emplace_back("u_around_follow", follows ? 1.0 : 0.0);
  const auto text = [&] {
    return surrounded(drawing.text ? drawing.text() : context.shaders().source(drawing.program), defines);
  };
  const auto& program = context.shaders().get_generated(drawing.program + "\n" + defines, text);
  Image result = context.make(extent);
  context.draw(program, result, drawing.uniforms, drawing.images);
  return result;
}

std::vector<Extent> extents_of(std::span<const Image> images) {
  std::vector<Extent> extents;
  for (const Image& image : images) extents.push_back(image.extent);
  return extents;
}

class Around final : public Operation {
 public:
  Around(std::shared_ptr<const Operation> inner, int base, int mask)
      : inner_(std::move(inner)),
        drawn_(dynamic_cast<const Drawn*>(inner_.get())),
        base_(base),
        mask_(mask) {}

  std::vector<std::string> check(const Knobs& knobs) const override {
    return inner_->check(knobs);
  }

  // First what it changes and the mask, as far as they are needed.
  std::vector<Request> reads(const Call& call) const override {
    const Share share = share_of(call);
    std::vector<Request> all = {{base_, call.frame}, {mask_, call.frame}};
    all.resize(share.images());
    if (share.none()) return all;
    for (const Request& each : inner_->reads(call))
      if (each.input != mask_) all.push_back(each);
    return all;
  }

  void identify(const Call& call, Identity& identity) const override {
    if (!share_of(call).none()) inner_->identify(call, identity);
  }

  bool coverage(const Call& call, std::span<const Image> inputs) const override {
    const Share share = share_of(call);
    if (share.none()) return inputs[0].coverage;
    const bool made = inner_->coverage(call, inputs.subspan(share.images()));
    if (share.all()) return made;
    if (factors(share.channels)[3] == 0) return inputs[0].coverage;
    return made || (inputs[0].coverage && (share.masked || share.mix < 1));
  }

  // Where a mask lets nothing through there are no pixels but those of the image.
  Extent extent(const Call& call, std::span<const Extent> inputs) const override {
    const Share share = share_of(call);
    if (share.none()) return inputs[0];
    Extent made = inner_->extent(call, inputs.subspan(share.images()));
    if (share.all()) return made;
    if (share.masked && !share.inverted) made.window = intersection(made.window, inputs[1].window);
    return {made.format, hull(made.window, inputs[0].window)};
  }

  Image render(const Call& call, std::span<const Image> inputs, const Extent& extent,
               RenderContext& context) const override {
    const Share share = share_of(call);
    if (share.none()) return inputs[0];
    const std::span<const Image> own = inputs.subspan(share.images());
    if (share.all()) return inner_->render(call, own, extent, context);

    const Extent full = inner_->extent(call, extents_of(own));
    if (share.alpha_alone() && !inputs[0].coverage) return inner_->render(call, own, full, context);
    if (drawn_ && covers(full.window, extent.window)) {
      const std::optional<Drawing> drawing = drawn_->drawing(call, own, context);
      return drawing ? held(*drawing, share, inputs, extent, context) : inputs[0];
    }
    Image made = settle(inner_->render(call, own, full, context), context);
    if (is_same(made, inputs[0])) return made;
    return held({"window.frag", {{"u_repeat", 0.0}}, {{"u_image", made}}}, share, inputs, extent, context);
  }

 private:
  Share share_of(const Call& call) const {
    return {call, static_cast<size_t>(mask_)};
  }

  static Image held(Drawing drawing, const Share& share, std::span<const Image> inputs, const Extent& extent,
                    RenderContext& context) {
    const Image base = settle(inputs[0], context);
    const Image mask = share.masked ? settle(inputs[1], context) : Image{};
    return shown(std::move(drawing), share, base, mask, extent, context);
  }

  std::shared_ptr<const Operation> inner_;
  const Drawn* drawn_;  // the same, where it is one draw
  int base_;
  int mask_;
};

}  // namespace

NodeType around(NodeType type) {
  const int mask = static_cast<int>(type.inputs.size());
  type.inputs.push_back(
      {"mask", false, "Where the result shows, by one of its channels; everywhere when not connected."});
  type.knobs.push_back(choice("mask_channel", "alpha", {"red", "green", "blue", "alpha"},
                              "Channel of the mask; the alpha of data is its values."));
  type.knobs.push_back(flag("invert_mask", false, "Shows the result where the mask is not."));
  type.knobs.push_back(number("mix", 1, "How much of the result, 0: none.").within(0, 1));
  type.knobs.push_back(choice("channels", type.changed_channels,
                              {"rgba", "rgb", "alpha", "red", "green", "blue"},
                              "Which channels change. Alpha: the matte, colour follows it; an image without "
                              "coverage changes as a whole."));
  type.operation = std::make_shared<Around>(std::move(type.operation), type.changes, mask);
  return type;
}

}  // namespace host::nodes
