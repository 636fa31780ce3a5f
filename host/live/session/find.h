#pragma once

#include "host/draw/frame_image.h"
#include "host/frame/frame_graph.h"
#include "host/live/session/session.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace host::live::session {

// The first pixel of a kind in an image, by rows from the top: x and y, y up.
std::optional<std::pair<int64_t, int64_t>> first_pixel(Kind kind, const draw::FrameImage& image);

// Looks for pixels of a kind in a node's image and, where there are any, for the first node from the top of
// the graph from which they come: one that has such pixels and hands them on, through nodes that have them
// too. Looks at one image at a time, so that others may have their turn between them.
class Search {
 public:
  using Read = std::function<draw::FrameImage(int node, int64_t frame, draw::Area area)>;

  // graph: of the node at the frame.
  Search(Kind kind, const shot::Composition& composition, frame::FrameGraph graph);

  // Looks at the next image; false once the answer is there.
  bool step(const Read& read);

  const Found& found() const {
    return found_;
  }

 private:
  Kind kind_;
  const shot::Composition& composition_;
  frame::FrameGraph graph_;
  size_t next_;                   // below it nobody has looked
  std::vector<uint8_t> reached_;  // by instance: handed on by one that has such pixels
  Found found_;
};

}  // namespace host::live::session
