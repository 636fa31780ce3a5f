#pragma once

#include <cstdint>
#include <string>

namespace host::draw {

// What a node's image at a frame took.
struct NodeUse {
  std::string node;
  int64_t frame = 0;
  bool cached = false;
  double ms = 0;       // of drawing it, and of what was drawn of its inputs for it
  int64_t key = 0;     // by which the result is stored
  uint64_t bytes = 0;  // of its textures, also those that it shares
};

}  // namespace host::draw
