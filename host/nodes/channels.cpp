#include <qv/nodes/merge/channels.h>

#include "host/nodes/channel_texts.h"
#include "host/nodes/drawn.h"
#include "host/nodes/families.h"

#include <array>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

// Single channels taken from here and put there.

namespace host::nodes {
namespace {

namespace logic = qv::nodes::merge;

[[noreturn]] void refuse_channel(const char* knob, const std::string& text) {
  throw std::runtime_error(std::string("knob \"") + knob +
                           "\": expected a channel such as rgba.red or rgba.alpha, found \"" + text + "\"");
}

Drawing shuffled(const std::array<float, 4>& codes, const Image& first, const Image& second) {
  return {"shuffle.frag",
          {{"u_codes", {codes[0], codes[1], codes[2], codes[3]}}},
          {{"u_first", first}, {"u_second", second}}};
}

// Whether a shuffle's alpha is coverage: as where it comes from. Made of colour it is meant to cover.
bool keeps_coverage(float alpha_code, bool first, bool second) {
  if (alpha_code == 9) return second;
  return alpha_code == 3 || alpha_code == 4 || alpha_code == 5 || alpha_code == 10 ? first : true;
}

class Copy final : public Drawn {
 public:
  std::vector<std::string> check(const Knobs& knobs) const override {
    std::vector<std::string> problems;
    for (const char* knob : knob_names) {
      for (std::string& problem : check_channel(knobs, knob)) problems.push_back(std::move(problem));
    }
    return problems;
  }

  bool coverage(const Call& call, std::span<const Image> inputs) const override {
    const auto channel = logic::copy_parse_channel(with_layer(call.knobs.text("alpha")));
    return keeps_coverage(channel ? static_cast<float>(6 + channel->index) : 10, inputs[1].coverage,
                          inputs[0].coverage);
  }

  Extent extent(const Call& /*call*/, std::span<const Extent> inputs) const override {
    return {inputs[1].format, hull(inputs[0].window, inputs[1].window)};
  }

  std::optional<Drawing> drawing(const Call& call, std::span<const Image> inputs,
                                 RenderContext& /*context*/) const override {
    std::array<logic::Route, 4> routes{};
    bool any = false;
    for (size_t c = 0; c < routes.size(); ++c) {
      const std::string& text = call.knobs.text(knob_names[c]);
      const auto channel = logic::copy_parse_channel(with_layer(text));
      if (!channel && !text.empty() && text != "none") refuse_channel(knob_names[c], text);
      if (!channel) continue;
      if (channel->layer != "rgba") refuse_channel(knob_names[c], text);
      routes[c] = {logic::route_input, 1, channel->index};
      any = true;
    }
    if (!any) return std::nullopt;
    return shuffled(logic::shuffle_codes(routes, true, true, true), inputs[1], inputs[0]);
  }

  static constexpr const char* knob_names[] = {"red", "green", "blue", "alpha"};
};

NodeType copy() {
  NodeType type;
  type.name = "copy";
  type.family = "merge";
  type.help = "Replaces channels of B by channels of A.";
  type.inputs = {{"a", true, "Where channels come from."}, {"b", true, "What they are put into."}};
  type.changes = 1;
  for (const char* name : Copy::knob_names) {
    type.knobs.push_back(text(name, std::string(name) == "alpha" ? "rgba.alpha" : "none",
                              std::string("Channel of A for B's ") + name + "; none keeps it."));
  }
  type.operation = std::make_shared<Copy>();
  return type;
}

class ChannelMerge final : public Drawn {
 public:
  std::vector<std::string> check(const Knobs& knobs) const override {
    std::vector<std::string> problems;
    for (const char* knob : {"a_channel", "b_channel", "output"}) {
      for (std::string& problem : check_channel(knobs, knob)) problems.push_back(std::move(problem));
    }
    return problems;
  }

  // An alpha that is made of channels is meant to cover.
  bool coverage(const Call& call, std::span<const Image> inputs) const override {
    return inputs[1].coverage || index_of(call.knobs, "output") == 3;
  }

  Extent extent(const Call& /*call*/, std::span<const Extent> inputs) const override {
    return {inputs[1].format, hull(inputs[0].window, inputs[1].window)};
  }

  std::optional<Drawing> drawing(const Call& call, std::span<const Image> inputs,
                                 RenderContext& /*context*/) const override {
    const Knobs& knobs = call.knobs;
    const int target = index_of(knobs, "output");
    if (target < 0) return std::nullopt;
    const auto index = [&knobs](const char* knob) { return static_cast<double>(index_of(knobs, knob)); };
    return Drawing{"channel_merge.frag",
                   {{"u_channels", {index("a_channel"), index("b_channel"), static_cast<double>(target)}},
                    {"u_op", static_cast<double>(logic::channelmerge_op(knobs.text("operation")))}},
                   {{"u_a", inputs[0]}, {"u_b", inputs[1]}}};
  }

 private:
  static int index_of(const Knobs& knobs, const char* knob) {
    const logic::Chan channel = logic::channelmerge_split(knobs.text(knob));
    if (channel.layer != "rgba" && channel.index >= 0) refuse_channel(knob, knobs.text(knob));
    return channel.index;
  }
};

NodeType channel_merge() {
  const auto operations = logic::channelmerge_operations();
  NodeType type;
  type.name = "channel_merge";
  type.family = "merge";
  type.help = "Merges one channel of A with one of B into a channel of B.";
  type.inputs = {{"a", true, "The first image."},
                 {"b", true, "The second; the result replaces its channel."}};
  type.changes = 1;
  type.knobs = {
      choice("operation", "union", {operations.begin(), operations.end()}, "How the two channels meet."),
      text("a_channel", "rgba.alpha", "Channel of A; none counts as 0."),
      text("b_channel", "rgba.alpha", "Channel of B; none counts as 0."),
      text("output", "rgba.alpha", "Channel of B that gets the result."),
  };
  type.operation = std::make_shared<ChannelMerge>();
  return type;
}

class Shuffle final : public Drawn {
 public:
  std::vector<std::string> check(const Knobs& knobs) const override {
    return check_routing(knobs.text("routing"));
  }

  bool coverage(const Call& call, std::span<const Image> inputs) const override {
    return keeps_coverage(codes(call)[3], inputs[0].coverage, inputs[1].coverage);
  }

  Extent extent(const Call& call, std::span<const Extent> inputs) const override {
    // A channel that is 1 everywhere has pixels wherever the format has.
    Extent result{inputs[0].format, hull(inputs[0].window, inputs[1].window)};
    for (const float code : codes(call))
      if (code == 5) result.window = hull(result.window, format_box(result.format));
    return result;
  }

  std::optional<Drawing> drawing(const Call& call, std::span<const Image> inputs,
                                 RenderContext& /*context*/) const override {
    return shuffled(codes(call), inputs[0], inputs[1]);
  }

 private:
  static std::array<float, 4> codes(const Call& call) {
    std::array<logic::Route, 8> routes;
    logic::shuffle_routing(routing_text(call.knobs.text("routing")), routes);
    const size_t group = call.knobs.text("group") == "second" ? 4 : 0;
    return logic::shuffle_codes(std::span<const logic::Route, 4>(routes.data() + group, 4), true, true,
                                call.node.inputs[1] >= 0);
  }
};

NodeType shuffle() {
  NodeType type;
  type.name = "shuffle";
  type.family = "merge";
  type.help = "Puts channels of two images together.";
  type.inputs = {{"first", true, "Input 0."}, {"second", false, "Input 1."}};
  type.knobs = {
      text("routing", "",
           "What each output channel gets: {\"r\": \"alpha\", \"a\": \"white\"}; black, white, or a channel, "
           "of "
           "the second input as \"second.blue\". Channels that are not named stay as they are. Or as a text: "
           "how "
           "many routes, then for each source, its input, a fallback slot, output, its group, a fallback "
           "slot.")
          .or_pairs(),
      choice("group", "first", {"first", "second"}, "Which of the routing's two output groups to show."),
  };
  type.operation = std::make_shared<Shuffle>();
  return type;
}

}  // namespace

std::vector<NodeType> channel_family() {
  return {copy(), channel_merge(), shuffle()};
}

}  // namespace host::nodes
