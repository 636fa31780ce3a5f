#include <qv/nodes/merge/channels.h>
#include <qv/nodes/merge/merge.h>

#include "host/nodes/channel_texts.h"
#include "host/nodes/families.h"

#include <array>
#include <stdexcept>
#include <utility>

// Two images into one, and one image out of several.

namespace host::nodes {
namespace {

namespace logic = qv::nodes::merge;

const std::vector<std::string> channel_sets = {"rgba", "rgb", "alpha", "none"};

// 1 for the channels of a set, 0 for the others: what a constant of ones in that set would be.
std::array<double, 4> factors(const std::string& set) {
  const std::array<float, 4> ones = logic::constant_color(1, 1, 1, 1, set);
  return {ones[0], ones[1], ones[2], ones[3]};
}

class Merge final : public Operation {
 public:
  std::vector<std::string> check(const Knobs& knobs) const override {
    return check_channel(knobs, "mask_channel");
  }

  // Of two images without coverage, a depth and another for one, the result has none either.
  bool coverage(const Call& call, std::span<const Image> inputs) const override {
    const std::string& written = call.knobs.text("channels");
    const bool alpha = written == "rgba" || written == "alpha";
    return inputs[1].coverage || (alpha && call.knobs.number("mix") > 0 && inputs[0].coverage);
  }

  Extent extent(const Call& /*call*/, std::span<const Extent> inputs) const override {
    return {inputs[1].format, hull(inputs[0].window, inputs[1].window)};
  }

  Image render(const Call& call, std::span<const Image> inputs, const Extent& extent,
               RenderContext& context) const override {
    const Knobs& knobs = call.knobs;
    const bool masked = call.node.inputs[2] >= 0;
    const logic::MergeSetup setup =
        logic::merge_setup(knobs.text("operation"), knobs.text("a_channels"), knobs.text("b_channels"),
                           knobs.text("channels"), masked ? knobs.text("mask_channel") : "",
                           knobs.number("mix"), knobs.flag("alpha_masking"), knobs.flag("invert_mask"));
    if (setup.out_none || setup.mix == 0) return inputs[1];

    int mask_channel = setup.mask_chans.empty() ? -1 : mask_index(setup.mask_chans);
    if (mask_channel == 3 && !inputs[2].coverage) mask_channel = 0;  // the values of data
    const Uniform uniforms[] = {{"u_a_channels", factors(setup.a_chans)},
                                {"u_b_channels", factors(setup.b_chans)},
                                {"u_out", std::array<double, 4>{setup.out_mask[0], setup.out_mask[1],
                                                                setup.out_mask[2], setup.out_mask[3]}},
                                {"u_mix", setup.mix},
                                {"u_mask_channel", static_cast<double>(mask_channel)},
                                {"u_invert_mask", setup.second_flag}};
    const Input images[] = {{"u_a", inputs[0]}, {"u_b", inputs[1]}, {"u_mask", inputs[2]}};
    Image result = context.make(extent);
    context.draw(context.shaders().get("merge.frag", defines(setup)), result, uniforms, images);
    return result;
  }

  // B is the picture, A what comes onto it.
  files::MetadataPtr metadata(const Call& /*call*/, std::span<const Image> inputs) const override {
    return inputs[1].metadata;
  }

 private:
  static std::string defines(const logic::MergeSetup& setup) {
    return "#define OPERATION " + std::to_string(static_cast<int>(setup.op)) + "\n#define MASKED " +
           (setup.mask_chans.empty() ? "0" : "1") + "\n#define ALPHA_MASKING " +
           (setup.alpha_masking != 0 ? "1" : "0") + "\n";
  }

  static int mask_index(const std::string& text) {
    const logic::Chan channel = logic::common_parse_channel(text);
    if (channel.layer == "rgba") return channel.index;
    throw std::runtime_error("knob \"mask_channel\": expected a channel such as alpha or red, found \"" +
                             text + "\"");
  }
};

std::vector<std::string> operation_names() {
  const auto names = logic::merge_operations();
  return {names.begin(), names.end()};
}

NodeType merge() {
  NodeType type;
  type.name = "merge";
  type.family = "merge";
  type.help = "Merges A, the foreground, with B, the background, by one of 30 operations.";
  type.inputs = {{"a", true, "The foreground."},
                 {"b", true, "The background; its format is the result's."},
                 {"mask", false, "Where the result shows, by one of its channels."}};
  type.knobs = {
      choice("operation", "over", operation_names(), "How A and B meet."),
      choice("a_channels", "rgba", channel_sets, "Channels of A that take part; others count as 0."),
      choice("b_channels", "rgba", channel_sets, "Channels of B that take part; others count as 0."),
      choice("channels", "rgba", channel_sets, "Channels to write; B shows in the others."),
      number("mix", 1, "How much of the result, 0: B alone.").within(0, 1),
      text("mask_channel", "alpha", "Channel of the mask: red, green, blue or alpha."),
      flag("invert_mask", false, "Shows the result where the mask is not."),
      flag("alpha_masking", false, "Keeps colour operations to where A and B overlap."),
  };
  type.changes = -1;  // mask and mix are its own
  type.operation = std::make_shared<Merge>();
  return type;
}

class Dissolve final : public Operation {
 public:
  std::vector<Request> reads(const Call& call) const override {
    const logic::Pick pick = pick_of(call);
    if (pick.t == 0) return {{pick.a, call.frame}};
    return {{pick.a, call.frame}, {pick.b, call.frame}};
  }

  Extent extent(const Call& /*call*/, std::span<const Extent> inputs) const override {
    if (inputs.size() < 2) return inputs[0];
    return {inputs[0].format, hull(inputs[0].window, inputs[1].window)};
  }

  Image render(const Call& call, std::span<const Image> inputs, const Extent& extent,
               RenderContext& context) const override {
    if (inputs.size() < 2) return inputs[0];
    const Uniform uniforms[] = {{"u_t", pick_of(call).t}};
    const Input images[] = {{"u_a", inputs[0]}, {"u_b", inputs[1]}};
    Image result = context.make(extent);
    context.draw("dissolve.frag", result, uniforms, images);
    return result;
  }

 private:
  static logic::Pick pick_of(const Call& call) {
    return logic::dissolve_pick(call.knobs.number("which"), static_cast<int>(call.node.inputs.size()));
  }
};

NodeType dissolve() {
  NodeType type;
  type.name = "dissolve";
  type.family = "merge";
  type.help = "Blends from one input to the next.";
  type.inputs = {{"images", true, "The images, in order."}};
  type.repeats_last_input = true;
  type.changes = -1;
  type.knobs = {number("which", 0, "Position: 0 the first input, 0.5 half way to the second, and so on.")};
  type.operation = std::make_shared<Dissolve>();
  return type;
}

class Switch final : public Operation {
 public:
  std::vector<Request> reads(const Call& call) const override {
    const int count = static_cast<int>(call.node.inputs.size());
    return {{logic::switch_index(call.knobs.number("which"), count), call.frame}};
  }

  Image render(const Call& /*call*/, std::span<const Image> inputs, const Extent& /*extent*/,
               RenderContext& /*context*/) const override {
    return inputs[0];
  }
};

NodeType switch_type() {
  NodeType type;
  type.name = "switch";
  type.family = "merge";
  type.help = "Shows one of its inputs.";
  type.inputs = {{"images", true, "The images, in order."}};
  type.repeats_last_input = true;
  type.changes = -1;
  type.takes_pending = true;
  type.knobs = {number("which", 0, "Which input, from 0; rounded down and held to those there are.")};
  type.operation = std::make_shared<Switch>();
  return type;
}

}  // namespace

std::vector<NodeType> merge_family() {
  return {merge(), dissolve(), switch_type()};
}

}  // namespace host::nodes
