#pragma once

#include "host/frame/frame_error.h"
#include "host/node/node.h"
#include "host/shot/composition.h"
#include "host/writer/image_writer.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace host::plan {

// What to write for one output of a frame.
struct Target {
  int node = 0;  // position in the composition
  writer::OutputFile file;
};

// An output that cannot be right whatever stands on disk. The text begins with the composition's file,
// node and knob, or with "--output".
class TargetError : public frame::FrameError {
 public:
  using frame::FrameError::FrameError;
};

// The nodes whose images go to files: every output, and behind them the further layers of each, in its order.
std::vector<int> images_of(const shot::Composition& composition);

// Where the outputs of a composition go, -o included; the one place that knows. Opens no file.
// Externally synchronised; composition and project outlive it.
class Targets {
 public:
  // given: each as -o, "NODE=PATH" for the output of that name or "PATH" for the only one, with %V where the
  // name of a view is to stand; without one an output goes where the composition says, or for a quick look
  // at a node that writes no file to SHOT.NODE.####.exr beside the composition. Throws TargetError.
  Targets(const shot::Composition& composition, const node::Project& project,
          const std::vector<std::string>& given);

  // Of one frame, in the order of the composition's outputs; those that write no file are left out.
  // Throws TargetError.
  std::vector<Target> at(int64_t frame) const;

  // That every output writes, and that no two of these frames' files are one, whatever links lead
  // there. Throws TargetError. Costs a look at the folders of every file.
  void check(const std::vector<int64_t>& frames) const;

  // `shot.json: node "out": knob "file": `, or `--output: `: the front of what is said of a target.
  std::string place(int node) const;

 private:
  Target target(int output, int64_t frame) const;
  void give(const std::string& text);
  void give_path(const std::string& node, const std::string& path);
  std::vector<std::string> output_names() const;
  void check_paths(size_t frames) const;
  std::string quick_look_path(const node::Node& node) const;

  const shot::Composition& composition_;
  const node::Project& project_;
  std::map<int, std::string> given_;  // paths by output, frames still in them
};

}  // namespace host::plan
