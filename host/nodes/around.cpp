#include "host/nodes/around.h"

#include <array>
#include <utility>

namespace host::nodes {
namespace {

// Asks another operation everything, and mixes what it draws with what it was given.
class Around final : public Operation {
 public:
  explicit Around(std::shared_ptr<const Operation> inner) : inner_(std::move(inner)) {}

  std::vector<std::string> check(const Knobs& knobs) const override {
    return inner_->check(knobs);
  }
  std::vector<Request> reads(const Call& call) const override {
    return inner_->reads(call);
  }
  void identify(const Call& call, Identity& identity) const override {
    inner_->identify(call, identity);
  }
  std::optional<plates::Source> source(const Call& call) const override {
    return inner_->source(call);
  }
  std::optional<files::OutputFile> output(const Call& call) const override {
    return inner_->output(call);
  }
  bool coverage(const Call& call, std::span<const Image> inputs) const override {
    return inner_->coverage(call, inputs);
  }

  Extent extent(const Call& call, std::span<const Extent> inputs) const override {
    Extent all = inner_->extent(call, inputs);
    if (call.knobs.text("channels") != "rgba") all.window = hull(all.window, inputs[0].window);
    return all;
  }

  Image render(const Call& call, std::span<const Image> inputs, const Extent& extent,
               RenderContext& context) const override {
    Image made = inner_->render(call, inputs, extent, context);
    const std::string& channels = call.knobs.text("channels");
    const bool matte = channels == "alpha";
    const bool all = channels == "rgba" || (matte && !inputs[0].coverage);
    if (all || made.texture == inputs[0].texture) return made;
    const double color = matte ? 0 : 1;
    const Uniform uniforms[] = {{"u_channels", {color, color, color, 1 - color}},
                                {"u_follow", matte ? 1.0 : 0.0}};
    const Input images[] = {{"u_image", inputs[0]}, {"u_made", made}};
    Image result = context.make(extent);
    context.draw("around.frag", result, uniforms, images);
    return result;
  }

 private:
  std::shared_ptr<const Operation> inner_;
};

}  // namespace

NodeType with_channels(NodeType type, std::string otherwise) {
  type.knobs.push_back(choice("channels", std::move(otherwise), {"rgba", "rgb", "alpha"},
                              "Which channels change. Alpha: the matte, colour follows it; an image without "
                              "coverage changes as a whole."));
  type.operation = std::make_shared<Around>(std::move(type.operation));
  return type;
}

}  // namespace host::nodes
