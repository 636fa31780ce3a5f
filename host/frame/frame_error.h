#pragma once

#include "host/shot/composition.h"

#include <cstdint>
#include <stdexcept>
#include <string>

namespace host::frame {

// A frame that failed; the text has file, node and frame in front of what went wrong.
class FrameError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
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
