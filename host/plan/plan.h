#pragma once

#include "host/frame/keyed_frame.h"
#include "host/node/node.h"
#include "host/plan/digest.h"
#include "host/plan/existing.h"
#include "host/plan/targets.h"
#include "host/shot/composition.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace host::plan {

// A file that a frame reads or writes.
struct PlannedFile {
  std::string node;
  int64_t frame = 0;  // of the node, which time nodes make differ from the output's
  std::string path;
  std::string error;    // why it cannot be read or written, with file and node; empty when it can
  bool exists = false;  // of an output: the file stands already
};

// What a frame would do, without a GPU.
struct FramePlan {
  int64_t frame = 0;
  std::vector<std::string> computes;  // "node @ frame", upstream first
  std::vector<std::string> reuses;    // the same, of results that an earlier frame of the plan made
  std::vector<PlannedFile> reads;     // of what is computed
  std::vector<PlannedFile> writes;
  std::vector<std::string> notices;  // that rendering would give
  std::string error;                 // why the frame cannot be rendered at all; names file, node and frame
  bool skipped = false;              // its files stand and stay
  bool fails = false;  // something above keeps it from being rendered, or did so at an earlier frame
};

// What rendering a list of frames would come to, as far as it is known before the first.
struct Outlook {
  int64_t failing = 0;                // frames
  std::vector<std::string> problems;  // a line for everything that keeps frames from being rendered
  std::set<int64_t> kept;             // frames whose files stand and stay
  // Frames that would be skipped, were their files not of another size or scale; and why.
  std::map<int64_t, std::string> stale;
};

struct PlanOptions {
  double scale = 1;                  // as --proxy
  std::vector<std::string> outputs;  // each as -o, in place of the composition's own
  Existing existing = Existing::refuse;
  // Pixels that a side of the device's textures may have. Asked only for an image that not every device
  // takes; may be empty.
  std::function<int()> largest_side;
  // What is known of files, for a renderer to go on with; null: the planner's own.
  std::shared_ptr<plates::Headers> headers;
  bool by_content = false;  // as --content
};

// Plans one frame after another as they would be rendered with enough memory for all results: the
// answer of --dry-run and of `quorvel info`, and what `render` looks at before it draws.
// Opens the files that are read, for their headers alone. Externally synchronised.
class Planner {
 public:
  // The composition outlives it.
  Planner(const shot::Composition& composition, PlanOptions options);
  Planner(const Planner&) = delete;
  Planner& operator=(const Planner&) = delete;

  FramePlan frame(int64_t frame);

  // Plans these frames and tells `each`, unless it is empty. Throws TargetError when one of them would
  // be written over a file that the outputs read.
  Outlook look_ahead(const std::vector<int64_t>& frames, const std::function<void(const FramePlan&)>& each);

  // Format and data window of every node at a frame, by position; nothing while a file of it is missing.
  std::optional<std::vector<Extent>> extents_if_known(int64_t frame) const;

  const Targets& targets() const {
    return targets_;
  }
  const node::Project& project() const {
    return project_;
  }

 private:
  void plan_results(const frame::KeyedFrame& keyed, FramePlan& plan);
  PlannedFile planned_read(const frame::Instance& instance, const plates::Source& source);
  std::string read_error(const plates::Source& source);
  std::vector<Extent> output_extents(const frame::FrameGraph& graph) const;
  void plan_writes(FramePlan& plan, const std::vector<Extent>& extents);
  bool stays(const FramePlan& plan, const std::vector<Target>& targets);
  bool too_large(const Box& window) const;
  void note_inputs(int64_t frame);
  void refuse_own_inputs(const std::vector<int64_t>& frames);

  const shot::Composition& composition_;
  PlanOptions options_;
  std::shared_ptr<plates::Headers> headers_;
  node::Project project_;
  Targets targets_;
  frame::FrameKeys keys_;
  Digests digests_;
  std::vector<bool> upstream_;                           // of the outputs, by position
  std::set<int64_t> made_;                               // keys of results that earlier frames computed
  std::set<int64_t> unreadable_;                         // those of them whose file cannot be read
  std::map<std::filesystem::path, std::string> inputs_;  // files that are read, and by which node
};

}  // namespace host::plan
