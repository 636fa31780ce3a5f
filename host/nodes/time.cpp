#include <qv/nodes/time/frames.h>

#include "host/nodes/families.h"

#include <algorithm>
#include <map>
#include <utility>

// Images of other frames: one that stands in for another, or several in one.

namespace host::nodes {
namespace {

namespace logic = qv::nodes::time;

// A frame of the input and its share of the result. What the shares lack of 1 is black.
using Weighted = std::pair<int64_t, double>;

// What all time nodes do once they have said which frames they want. One frame comes as it is.
class FromFrames : public Operation {
 public:
  std::vector<Request> reads(const Call& call) const override {
    std::vector<Request> requests;
    for (const auto& [frame, weight] : frames(call)) requests.push_back({0, frame});
    return requests;
  }

  void identify(const Call& call, Identity& identity) const override {
    const std::vector<Weighted> wanted = frames(call);
    if (is_one_frame(wanted)) return;
    for (const auto& [frame, weight] : wanted) identity.add(weight);
  }

  Extent extent(const Call& call, std::span<const Extent> inputs) const override {
    if (inputs.empty()) return {call.project.format, {}};
    Extent all = inputs[0];
    for (const Extent& each : inputs) all.window = hull(all.window, each.window);
    return all;
  }

  Image render(const Call& call, std::span<const Image> inputs, const Extent& extent,
               RenderContext& context) const override {
    const std::vector<Weighted> wanted = frames(call);
    if (is_one_frame(wanted)) return inputs[0];
    Image sum = context.solid(extent, {0, 0, 0, 0});
    for (size_t i = 0; i < inputs.size(); ++i) {
      if (!inputs[i].texture) continue;
      const Uniform uniforms[] = {{"u_weight", wanted[i].second}};
      const Input images[] = {{"u_image", inputs[i]}};
      context.draw("weigh.frag", sum, uniforms, images, Blend::add);
    }
    return sum;
  }

 protected:
  virtual std::vector<Weighted> frames(const Call& call) const = 0;

 private:
  static bool is_one_frame(const std::vector<Weighted>& wanted) {
    return wanted.size() == 1 && wanted[0].second == 1;
  }
};

// Frames that may stand more than once, each once with all its shares.
std::vector<Weighted> gathered(const std::vector<Weighted>& scattered) {
  std::map<int64_t, double> shares;
  for (const auto& [frame, share] : scattered) shares[frame] += share;
  return {shares.begin(), shares.end()};
}

double time_of(const Call& call) {
  return static_cast<double>(call.frame);
}

bool nearest(const Knobs& knobs) {
  return knobs.text("rounding") == "nearest";
}

KnobSpec rounding_knob() {
  return choice("rounding", "nearest", {"nearest", "down"}, "Which frame stands for a time between two.");
}

bool gives_range(const Knobs& knobs) {
  return knobs.integer("first") != 0 || knobs.integer("last") != 0;
}

class TimeOffset final : public FromFrames {
  std::vector<Weighted> frames(const Call& call) const override {
    const bool given = gives_range(call.knobs);
    const int64_t first = given ? call.knobs.integer("first") : call.project.first_frame;
    const int64_t last = given ? call.knobs.integer("last") : call.project.last_frame;
    return {{logic::timeoffset_frame(time_of(call), call.knobs.number("offset"), call.knobs.flag("reverse"),
                                     first, last, nearest(call.knobs)),
             1}};
  }
};

class FrameHold final : public FromFrames {
  std::vector<Weighted> frames(const Call& call) const override {
    return {{logic::framehold_frame(time_of(call), call.knobs.number("frame"), call.knobs.integer("every"),
                                    nearest(call.knobs)),
             1}};
  }
};

class FrameBlend final : public FromFrames {
  std::vector<Weighted> frames(const Call& call) const override {
    const Knobs& knobs = call.knobs;
    const std::vector<int64_t> all =
        logic::frameblend_frames(call.frame, knobs.integer("count"), knobs.flag("use_range"),
                                 knobs.number("range", 0), knobs.number("range", 1));
    std::vector<Weighted> equal;
    equal.reserve(all.size());
    for (const int64_t frame : all) equal.emplace_back(frame, 1 / static_cast<double>(all.size()));
    return equal;
  }
};

class TimeBlur final : public FromFrames {
  std::vector<Weighted> frames(const Call& call) const override {
    return logic::box_weights(time_of(call) + call.knobs.number("offset"), call.knobs.number("width"));
  }
};

class ShutterNode final : public FromFrames {
  std::vector<Weighted> frames(const Call& call) const override {
    const Knobs& knobs = call.knobs;
    const int64_t samples = std::max<int64_t>(1, knobs.integer("samples"));
    std::vector<Weighted> counted =
        logic::shutter_weights(time_of(call), samples, knobs.number("shutter"),
                               knobs.choice("shutter_position"), knobs.number("shutter_offset"));
    for (auto& [frame, weight] : counted) weight /= static_cast<double>(samples);
    return knobs.text("shutter_position") == "centered" ? mirrored(counted, time_of(call)) : counted;
  }

  // A time half way between two frames is rounded up, on either side of the middle alike: looked at
  // in a mirror as well, it shows half of each.
  static std::vector<Weighted> mirrored(const std::vector<Weighted>& counted, double middle) {
    std::vector<Weighted> both;
    for (const auto& [frame, share] : counted) {
      both.emplace_back(frame, share / 2);
      both.emplace_back(logic::whole(2 * middle - static_cast<double>(frame), true), share / 2);
    }
    return gathered(both);
  }
};

class Retime final : public FromFrames {
  std::vector<Weighted> frames(const Call& call) const override {
    const Knobs& knobs = call.knobs;
    const auto number = [](int64_t frame) { return static_cast<double>(frame); };
    const bool given = gives_range(knobs);
    const int ends = knobs.choice("output_ends");
    const logic::RetimeRanges ranges = logic::retime_ranges(
        number(call.project.first_frame), number(call.project.last_frame), number(knobs.integer("first")),
        given, number(knobs.integer("last")), given, knobs.number("output", 0),
        ends == ends_first || ends == ends_both, knobs.number("output", 1),
        ends == ends_last || ends == ends_both, knobs.number("speed"));
    const auto position =
        logic::retime_pos(call.frame, ranges, knobs.choice("before"), knobs.choice("after"));
    if (!position) return {};
    const double time = knobs.flag("reverse") ? ranges.in_last - *position : ranges.in_first + *position;
    if (knobs.text("rounding") == "blend") return in_range(logic::box_weights(time, 1), ranges, knobs);
    return in_range({{logic::whole(time, nearest(knobs)), 1}}, ranges, knobs);
  }

  // The last frame of an output range may lie between the last input frame and one that is not there.
  // What stands there is what stands beyond the output range on that side.
  static std::vector<Weighted> in_range(const std::vector<Weighted>& wanted,
                                        const logic::RetimeRanges& ranges, const Knobs& knobs) {
    const int64_t first = logic::whole(ranges.in_first, true);
    const int64_t last = logic::whole(ranges.in_last, true);
    std::vector<Weighted> inside;
    for (const auto& [frame, share] : wanted) {
      const bool early = knobs.flag("reverse") ? frame > last : frame < first;
      const auto read = logic::edge_frame(frame, first, last, knobs.choice(early ? "before" : "after"));
      if (read) inside.emplace_back(*read, share);
    }
    return gathered(inside);
  }

  // Positions in the list of output_ends.
  static constexpr int ends_first = 1;
  static constexpr int ends_last = 2;
  static constexpr int ends_both = 3;
};

NodeType time_type(std::string name, std::string help, std::vector<KnobSpec> knobs,
                   std::shared_ptr<const Operation> operation) {
  NodeType type;
  type.name = std::move(name);
  type.family = "time";
  type.help = std::move(help);
  type.inputs = {{"image", true, "What to show at another time."}};
  type.knobs = std::move(knobs);
  type.operation = std::move(operation);
  return type;
}

// Frames that stand in for others.
NodeType another(NodeType type) {
  type.changes = -1;
  return type;
}

// One frame for another, which may wait for its transform as well as before.
NodeType single(NodeType type) {
  type.takes_pending = true;
  return another(std::move(type));
}

std::vector<KnobSpec> shutter_knobs() {
  return {
      integer("samples", 8, "Times at which to look, from opening to closing; each shows its nearest frame.")
          .within(1, 10000),
      number("shutter", 1, "How long the shutter is open, in frames.").within(0, 1000),
      choice("shutter_position", "centered", {"centered", "start", "end", "custom"},
             "Where the frame lies in the time that the shutter is open."),
      number("shutter_offset", 0, "When the shutter opens, in frames from the frame, for custom."),
  };
}

std::vector<KnobSpec> retime_knobs() {
  // In the library's order.
  const std::vector<std::string> edges = {"continue", "loop", "bounce", "hold", "black"};
  return {
      number("speed", 1, "Input frames an output frame; not used when both output ends are given.")
          .within(0, 10000),
      integer("first", 0, "First input frame; first and last 0: the composition's."),
      integer("last", 0, "Last input frame."),
      choice("output_ends", "none", {"none", "first", "last", "both"},
             "Which ends of the output range are given; the others follow from the speed."),
      numbers("output", {1, 1}, "First and last frame of the output range."),
      flag("reverse", false, "Plays the input backwards."),
      choice("before", "hold", edges, "What stands before the output range."),
      choice("after", "hold", edges, "What stands after the output range."),
      choice("rounding", "nearest", {"nearest", "down", "blend"},
             "Which frame stands for a time between two; blend: a mixture of both."),
  };
}

}  // namespace

std::vector<NodeType> time_family() {
  return {
      single(time_type("time_offset", "Shows the image later or earlier.",
                       {number("offset", 0, "By how many frames later."),
                        flag("reverse", false, "Plays the range backwards before it is offset."),
                        integer("first", 0, "First frame of the range; first and last 0: the composition's."),
                        integer("last", 0, "Last frame of the range."), rounding_knob()},
                       std::make_shared<TimeOffset>())),
      single(
          time_type("frame_hold", "Shows one frame all the time, or every so many frames a new one.",
                    {number("frame", 1, "The frame to hold, or the first of those."),
                     integer("every", 0, "How many frames to hold each for; 0: for ever."), rounding_knob()},
                    std::make_shared<FrameHold>())),
      time_type("frame_blend", "Shows the mean of several frames.",
                {integer("count", 5, "How many frames, from this one backwards.").within(1, 256),
                 flag("use_range", false, "Takes the frames of the range instead, at most 256."),
                 numbers("range", {1, 5}, "First and last frame of the range.")},
                std::make_shared<FrameBlend>()),
      time_type("time_blur", "Shows the mean over a stretch of time, frames at its ends in part.",
                {number("width", 2, "How long the stretch is, in frames.").within(0, 1000),
                 number("offset", 0, "Where its middle lies, in frames from the frame.")},
                std::make_shared<TimeBlur>()),
      time_type("shutter", "Shows what an open shutter sees of the frames around.", shutter_knobs(),
                std::make_shared<ShutterNode>()),
      another(time_type("retime",
                        "Plays a stretch of the image faster or slower, over another stretch of time.",
                        retime_knobs(), std::make_shared<Retime>())),
  };
}

}  // namespace host::nodes
