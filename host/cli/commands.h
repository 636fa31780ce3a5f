#pragma once

#include "host/gpu/gpu_context.h"
#include "host/render/renderer.h"
#include "host/report/progress.h"

#include <stdexcept>
#include <string>

namespace host::cli {

// Something that the person who typed the command can put right; the text says what and how.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct RenderCommand {
  std::string file;
  std::string frames;  // as typed; "" for the composition's own
  std::string gpu = "auto";
  std::string stats;  // "" none, "-" for people, else the path of a JSON file
  report::ProgressStyle progress = report::ProgressStyle::automatic;
  bool dry_run = false;
  render::RenderOptions options;  // all but `frames` and `stop`, which the command fills in
};

struct InfoCommand {
  std::string file;
  bool dot = false;
};

struct NodesCommand {
  std::string type;  // "" for all
  bool schema = false;
};

// Two image files, or two sequences.
struct CompareCommand {
  std::string first, second;
  std::string frames;  // as typed; "" for those on disk
  double tolerance = 0;
  std::string picture;  // a path for the picture of the difference, "" for none
};

// Each prints its results to standard output and returns an ExitCode. They throw UsageError,
// shot::CompositionError, shot::FramesError, gpu::NoGpu, programs::ShaderError, and std::runtime_error for
// the rest.
int render_frames(const RenderCommand& command);
int print_info(const InfoCommand& command);
int print_nodes(const NodesCommand& command);
int compare(const CompareCommand& command);

}  // namespace host::cli
