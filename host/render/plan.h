#pragma once

#include "host/nodes/node.h"
#include "host/shot/composition.h"

#include <cstdint>
#include <string>
#include <vector>

namespace host::render {

// What a frame would do, without a GPU: the answer of --dry-run and of `quorvel info`.
struct PlannedFile {
  std::string node;
  int64_t frame = 0;  // of the node, which time nodes make differ from the output's
  std::string path;
  std::string error;  // of an input: why it cannot be read; empty when it can
};

struct FramePlan {
  int64_t frame = 0;
  std::vector<std::string> computes;  // "node @ frame", upstream first
  std::vector<PlannedFile> reads;
  std::vector<PlannedFile> writes;
};

FramePlan plan_frame(const shot::Composition& composition, int64_t frame, const nodes::Project& project);

// The composition as a Graphviz graph, a box a node, an arrow an input.
std::string graphviz(const shot::Composition& composition);

}  // namespace host::render
