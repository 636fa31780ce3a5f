#pragma once

#include "host/shot/composition.h"

#include <cstdint>
#include <stdexcept>
#include <string>

namespace host::frame {

// A frame that failed; the text has file, node and frame in front of what went wrong.
class FrameError : public std::runtime_error {
 public:
  explicit FrameError(const std::string& text) : std::runtime_error(text), reason_(text) {}

  // node: position in the composition.
  FrameError(const shot::Composition& composition, int node, int64_t frame, const std::string& reason);

  // The node at fault, "" where the text alone says it; and what went wrong without the place.
  const std::string& node() const {
    return node_;
  }
  const std::string& reason() const {
    return reason_;
  }

 private:
  std::string node_;
  std::string reason_;
};

// A single image needs more than the whole memory budget.
class MemoryLimit : public FrameError {
 public:
  using FrameError::FrameError;
};

// The run was told to stop while this frame was drawn: it is nobody's fault and leaves nothing behind.
struct Interrupted {};

// `shot.json: node "soft": frame 12: `, the front of every such text.
std::string frame_place(const shot::Composition& composition, int node, int64_t frame);

}  // namespace host::frame
