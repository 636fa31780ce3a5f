#pragma once

#include "host/frame/existing.h"
#include "host/frame/keyed_frame.h"
#include "host/node/node.h"
#include "host/shot/composition.h"

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace host::frame {

// What a frame would do, without a GPU: the answer of --dry-run and of `quorvel info`.
struct PlannedFile {
  std::string node;
  int64_t frame = 0;  // of the node, which time nodes make differ from the output's
  std::string path;
  std::string error;    // of an input: why it cannot be read; empty when it can
  bool exists = false;  // of an output: the file stands already
};

struct FramePlan {
  int64_t frame = 0;
  std::vector<std::string> computes;  // "node @ frame", upstream first
  std::vector<std::string> reuses;    // the same, of results that an earlier frame of the plan made
  std::vector<PlannedFile> reads;     // of what is computed
  std::vector<PlannedFile> writes;
  std::string error;  // why the frame cannot be rendered at all; names file, node and frame
};

// Plans one frame after another as they would be rendered with enough memory for all results.
// Opens the files that are read, for their headers alone. Externally synchronised.
class Planner {
 public:
  // scale: as --proxy; output: as -o, "" for the composition's own. The composition outlives it.
  Planner(const shot::Composition& composition, double scale, std::string output);
  Planner(const Planner&) = delete;
  Planner& operator=(const Planner&) = delete;

  FramePlan frame(int64_t frame);

  // Where the outputs of a frame go; those that say nowhere, or fail to say, are left out.
  std::vector<PlannedFile> writes(int64_t frame) const;

  // Format and data window of every node at a frame, by position; throws FrameError.
  std::vector<Extent> extents(int64_t frame) const;

  const node::Project& project() const {
    return project_;
  }

 private:
  PlannedFile planned_read(const node::Node& node, const Instance& instance, const files::Source& source);

  const shot::Composition& composition_;
  std::string output_;
  files::Headers headers_;
  node::Project project_;
  FrameKeys keys_;
  std::set<int64_t> made_;  // keys of results that earlier frames computed
};

// Whether nothing that is known now keeps the frame from being rendered.
bool can_render(const FramePlan& plan, Existing existing);

}  // namespace host::frame
