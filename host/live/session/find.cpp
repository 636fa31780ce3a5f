#include "host/live/session/find.h"

#include <cmath>
#include <tuple>
#include <utility>

namespace host::live::session {
namespace {

bool is_of(Kind kind, float value) {
  switch (kind) {
    case Kind::nan:
      return std::isnan(value);
    case Kind::infinite:
      return std::isinf(value);
    case Kind::negative:
      break;
  }
  return value < 0;
}

}  // namespace

std::optional<std::pair<int64_t, int64_t>> first_pixel(Kind kind, const draw::FrameImage& image) {
  if (!image.pixels) return std::nullopt;
  const int64_t width = box_width(image.area);
  const int64_t floats = 4 * width * box_height(image.area);
  for (int64_t at = 0; at < floats; ++at) {
    if (!is_of(kind, image.pixels[at])) continue;
    const int64_t pixel = at / 4;
    return std::pair(image.area[0] + pixel % width, image.area[3] - 1 - pixel / width);
  }
  return std::nullopt;
}

Search::Search(Kind kind, const shot::Composition& composition, frame::FrameGraph graph)
    : kind_(kind),
      composition_(composition),
      graph_(std::move(graph)),
      next_(graph_.instances.size()),
      reached_(graph_.instances.size()) {
  reached_[static_cast<size_t>(graph_.outputs[0])] = 1;
}

bool Search::step(const Read& read) {
  while (next_ > 0 && reached_[next_ - 1] == 0) --next_;
  if (next_ == 0) return false;
  const frame::Instance& instance = graph_.instances[--next_];
  const bool shown = static_cast<int>(next_) == graph_.outputs[0];
  const auto pixel = first_pixel(
      kind_, read(instance.node, instance.frame, shown ? draw::Area::format : draw::Area::window));
  if (pixel) {
    const node::Node& node = composition_.nodes[static_cast<size_t>(instance.node)];
    // Upstream comes first, so the last one that is looked at stands at the top.
    found_.made_by = node.name;
    if (shown) {
      found_.found = true;
      std::tie(found_.x, found_.y) = *pixel;
    }
    for (const int at : instance.reads) {
      if (at >= 0 && node.type->reads_pixels) reached_[static_cast<size_t>(at)] = 1;
    }
  }
  return next_ > 0;
}

}  // namespace host::live::session
