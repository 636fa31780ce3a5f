#include <qv/nodes/merge/merge.h>
#include <qv/nodes/time/frames.h>

#include "host/files/pattern.h"
#include "host/nodes/families.h"
#include "host/plates/sequence.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

// Where images come from.

namespace host::nodes {
namespace {

// In the order of the library's modes; `error` is its frame that passes through, and is refused here.
const std::vector<std::string> edge_names = {"error", "loop", "bounce", "hold", "black"};

class Read final : public Operation {
 public:
  void identify(const Call& call, Identity& identity) const override {
    const auto file = file_of(call, true);
    if (!file || !file->pixels) identity.add("black");
    if (!file) return;
    // As written, so that another machine, where the folder is called otherwise, comes to the same.
    identity.add(files::frame_path(call.knobs.text("file"), file->frame));
    if (call.project.by_content) {
      identity.add(call.project.headers->content(file->path));
      return;
    }
    const plates::Attributes attributes = call.project.headers->last_attributes(file->path);
    identity.add(attributes.size);
    identity.add(attributes.mtime_ns);
  }

  std::optional<plates::Source> source(const Call& call) const override {
    const auto file = file_of(call);
    if (!file) return std::nullopt;
    return source_of(call, *file);
  }

  std::optional<plates::ReadColor> color(const Call& call) const override {
    const auto file = file_of(call);
    if (!file || !file->pixels) return std::nullopt;
    const plates::HeaderPtr header = call.project.headers->get(file->path);
    if (!header->error.empty()) return std::nullopt;
    return plates::ReadColor{header->color.name, is_decoded(call, file->path)};
  }

  Extent extent(const Call& call, std::span<const Extent> /*inputs*/) const override {
    const auto file = file_of(call);
    if (!file) return {call.project.format, {}};
    Extent extent = scaled(layer_of(call, *file).extent, call.project.scale);
    if (!file->pixels) extent.window = {};
    return extent;
  }

  std::string notice(const Call& call) const override {
    const auto file = file_of(call);
    if (!file || file->missing.empty()) return {};
    return file->missing + ": no such file; " +
           (file->pixels ? file->path + " stands in for it" : "it is black");
  }

  Image render(const Call& call, std::span<const Image> /*inputs*/, const Extent& extent,
               RenderContext& context) const override {
    const auto wanted = source(call);
    if (!wanted || !wanted->pixels) return context.make(extent);
    const bool srgb = is_decoded(call, wanted->path);
    const decode::Pixels pixels = context.fetch(*wanted);
    const bool coverage = call.project.headers->layer(*wanted).coverage;
    if (!srgb && pixels.extent.window == extent.window && call.project.scale == 1) {
      return context.decoded(extent, pixels);
    }
    const Image whole = context.upload(pixels.extent, pixels);
    Image result = context.make(extent);
    const Box& window = pixels.extent.window;
    const Uniform uniforms[] = {
        {"u_scale", call.project.scale},
        {"u_srgb", srgb ? 1.0 : 0.0},
        {"u_coverage", coverage ? 1.0 : 0.0},
        {"u_source", {static_cast<double>(window[0]), static_cast<double>(window[3])}}};
    const Input images[] = {{"u_image", whole}};
    context.draw("read.frag", result, uniforms, images);
    return result;
  }

  bool coverage(const Call& call, std::span<const Image> /*inputs*/) const override {
    const auto file = file_of(call);
    return !file || layer_of(call, *file).coverage;
  }

  files::MetadataPtr metadata(const Call& call, std::span<const Image> /*inputs*/) const override {
    const auto file = file_of(call);
    return file && file->pixels ? call.project.headers->metadata(source_of(call, *file)) : nullptr;
  }

 private:
  // What a frame is made of.
  struct File {
    int64_t frame = 0;
    std::string path;
    bool pixels = true;   // false: transparent black of its format
    std::string missing;  // the file that it stands in for, "" where that stands
  };
  using Range = std::pair<int64_t, int64_t>;

  // Nothing where the sequence is black. The system is asked what stands, or (`now` false) it is as it was
  // then: all answers for one frame speak of the same file.
  static std::optional<File> file_of(const Call& call, bool now = false) {
    const std::string pattern = resolved_path(call.project, call.knobs.text("file"));
    if (pattern.empty()) throw std::runtime_error("knob \"file\": expected a path, found none");
    plates::Headers& headers = *call.project.headers;
    std::optional<int64_t> frame = call.frame;
    if (files::has_frame(pattern)) {
      const auto range = range_of(call, pattern, now);
      frame = range ? frame_in(call, pattern, *range) : call.frame;
    }
    if (!frame) return std::nullopt;
    File file{*frame, files::frame_path(pattern, *frame), true, {}};
    const bool stand_ins = files::has_frame(pattern) && call.knobs.text("missing") != "error";
    if (stand_ins) {
      const plates::FramesPtr others =
          now ? headers.look_beside(file.path, pattern) : headers.frames_beside(file.path, pattern);
      if (!others) return file;
      const auto other = stand_in(call, *others, *frame);
      if (!other) return file;
      file = {*other, files::frame_path(pattern, *other), call.knobs.text("missing") == "nearest", file.path};
    }
    if (now) headers.attributes(file.path);
    return file;
  }

  static bool has_range(const Call& call) {
    return call.knobs.integer("first") != 0 || call.knobs.integer("last") != 0;
  }

  // First and last frame, as far as anything depends on them.
  static std::optional<Range> range_of(const Call& call, const std::string& pattern, bool now) {
    if (has_range(call)) return Range(call.knobs.integer("first"), call.knobs.integer("last"));
    if (call.knobs.text("before") == "error" && call.knobs.text("after") == "error") return std::nullopt;
    plates::Headers& headers = *call.project.headers;
    return now ? headers.look_at_range(pattern, call.frame) : headers.range_at(pattern, call.frame);
  }

  static std::optional<int64_t> frame_in(const Call& call, const std::string& pattern, const Range& range) {
    const auto [first, last] = range;
    if (first > last) {
      throw std::runtime_error("knob \"last\": expected a frame from " + std::to_string(first) +
                               " on, found " + std::to_string(last));
    }
    const char* edge = call.frame < first ? "before" : "after";
    const bool outside = call.frame < first || call.frame > last;
    if (outside && call.knobs.text(edge) == "error") {
      throw std::runtime_error(files::frame_path(pattern, call.frame) + ": the sequence has frames " +
                               std::to_string(first) + " to " + std::to_string(last));
    }
    return qv::nodes::time::edge_frame(call.frame, first, last, call.knobs.choice(edge));
  }

  // For a frame that is missing within the sequence: the nearest of those that stand.
  static std::optional<int64_t> stand_in(const Call& call, const std::vector<int64_t>& others,
                                         int64_t frame) {
    if (!has_range(call)) {
      const bool inside = !others.empty() && others.front() < frame && frame < others.back();
      return inside ? plates::nearest(others, frame) : std::nullopt;
    }
    const auto begin = std::lower_bound(others.begin(), others.end(), call.knobs.integer("first"));
    const auto end = std::upper_bound(begin, others.end(), call.knobs.integer("last"));
    return plates::nearest({begin, end}, frame);
  }

  static plates::Source source_of(const Call& call, const File& file) {
    return {file.path, call.knobs.text("layer"), call.knobs.texts("channels"), file.pixels};
  }

  static plates::Layer layer_of(const Call& call, const File& file) {
    return call.project.headers->layer(source_of(call, file));
  }

  // Whether its values are turned from sRGB into light.
  static bool is_decoded(const Call& call, const std::string& path) {
    const std::string& color = call.knobs.text("color");
    return color == "srgb" || (color == "auto" && call.project.headers->get(path)->color.name == "sRGB");
  }

  static Extent scaled(Extent extent, double scale) {
    if (scale == 1) return extent;
    const auto side = [scale](int64_t value) {
      return std::max<int64_t>(1, std::llround(static_cast<double>(value) * scale));
    };
    const auto down = [scale](int64_t value) {
      return static_cast<int64_t>(std::floor(static_cast<double>(value) * scale));
    };
    const auto up = [scale](int64_t value) {
      return static_cast<int64_t>(std::ceil(static_cast<double>(value) * scale));
    };
    const Box& window = extent.window;
    return {{side(extent.format.width), side(extent.format.height), extent.format.pixel_aspect},
            {down(window[0]), down(window[1]), up(window[2]), up(window[3])}};
  }
};

NodeType read() {
  NodeType type;
  type.name = "read";
  type.family = "in and out";
  type.help = "Reads an image or a sequence of images from files.";
  type.knobs = {
      file("file", "Path; a sequence has #### or %04d where the frame number stands."),
      text("layer", "",
           "Which layer of the file to read: a part, \"part.layer\", or what its channels begin with; empty: "
           "the main image."),
      texts("channels", 4,
            "Channels to read by name instead, such as \"N.Z\": one is grey, more become red, green, blue "
            "and alpha in their order."),
      choice("color", "auto", {"auto", "linear", "srgb"},
             "How colour is encoded; auto: as the file says, else sRGB in files of whole numbers."),
      integer("first", 0, "First frame of the sequence; both 0: those found on disk."),
      integer("last", 0, "Last frame of the sequence."),
      choice("before", "error", edge_names, "What stands before the first frame."),
      choice("after", "error", edge_names, "What stands after the last frame."),
      choice("missing", "error", {"error", "nearest", "black"},
             "What stands for a frame within the sequence whose file is missing: the nearest one, the "
             "earlier of "
             "two, or transparent black."),
  };
  type.operation = std::make_shared<Read>();
  return type;
}

class Constant final : public Operation {
 public:
  Extent extent(const Call& call, std::span<const Extent> /*inputs*/) const override {
    return {call.project.format, format_box(call.project.format)};
  }

  Image render(const Call& call, std::span<const Image> /*inputs*/, const Extent& extent,
               RenderContext& context) const override {
    const auto channel = [&](size_t at) { return call.knobs.number("color", at); };
    return context.solid(extent, qv::nodes::merge::constant_color(channel(0), channel(1), channel(2),
                                                                  channel(3), call.knobs.text("channels")));
  }
};

NodeType constant() {
  NodeType type;
  type.name = "constant";
  type.family = "in and out";
  type.help = "One colour over the whole format.";
  type.knobs = {
      numbers("color", {0, 0, 0, 1}, "Red, green, blue and alpha, premultiplied."),
      choice("channels", "rgba", {"rgba", "rgb", "alpha", "none"},
             "Which channels get the colour; others are 0."),
  };
  type.operation = std::make_shared<Constant>();
  return type;
}

}  // namespace

std::vector<NodeType> in_out_family() {
  return {read(), constant()};
}

}  // namespace host::nodes
