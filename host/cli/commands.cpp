#include "host/cli/commands.h"

#include "host/base/suggest.h"
#include "host/cli/cli.h"
#include "host/cli/describe.h"
#include "host/cli/info.h"
#include "host/cli/interrupt.h"
#include "host/cli/stats_text.h"
#include "host/files/atomic_file.h"
#include "host/files/encode.h"
#include "host/files/library_threads.h"
#include "host/files/pattern.h"
#include "host/frame/plan.h"
#include "host/frame/project.h"
#include "host/nodes/catalogue.h"
#include "host/shot/composition.h"
#include "host/shot/frames.h"
#include "host/shot/schema.h"

#include <cstdlib>
#include <iostream>
#include <set>
#include <vector>

#include <unistd.h>

namespace host::cli {
namespace {

gpu::DeviceChoice device_choice(const std::string& text) {
  try {
    return gpu::parse_device(text);
  } catch (const std::invalid_argument& error) {
    throw UsageError(std::string("--gpu: ") + error.what());
  }
}

// What was asked for; a list that only leaves out does so from the composition's frames.
std::vector<int64_t> frames_to_render(const shot::Composition& composition, const std::string& asked) {
  if (asked.empty()) return composition.frames;
  std::vector<int64_t> frames = shot::parse_frames(asked);
  if (!frames.empty() || asked.front() != '^') return frames;
  return shot::parse_frames(shot::frames_text(composition.frames) + "," + asked);
}

// An output path must be good for every frame before the first one is drawn.
void check_output_option(const shot::Composition& composition, const RenderCommand& command) {
  const std::string& path = command.options.output;
  if (path.empty()) return;
  if (composition.outputs.size() != 1) {
    throw UsageError("--output: " + composition.file + " has " + std::to_string(composition.outputs.size()) +
                     " outputs; name one of them in the composition's \"output\"");
  }
  if (command.options.frames.size() > 1 && !files::has_frame(path)) {
    throw UsageError("--output: " + path + ": expected #### or %04d where the frame number is to stand");
  }
  if (const std::string reason = files::unsupported_reason(path); !reason.empty()) {
    throw UsageError("--output: " + path + ": " + reason);
  }
}

// A composition that writes nothing, or to a file type that nobody knows, is wrong for every frame.
void check_outputs(const shot::Composition& composition, const RenderCommand& command,
                   const node::Project& project) {
  check_output_option(composition, command);
  if (!command.options.output.empty()) return;
  for (const int output : composition.outputs) {
    const node::Node& node = composition.nodes[static_cast<size_t>(output)];
    const std::string place = composition.file + ": node \"" + node.name + "\": ";
    if (!node.type->writes_files) {
      throw UsageError(place + "it writes no file; give --output or add a node of type \"write\"");
    }
    const auto file = node.type->operation->output(node.call_at(command.options.frames[0], project));
    if (!file) continue;
    if (const std::string reason = files::unsupported_reason(file->path); !reason.empty()) {
      throw UsageError(
          std::string(place).append("knob \"file\": ").append(file->path).append(": ").append(reason));
    }
  }
}

// What earlier runs left half written where this one will write.
void tidy_folders(const frame::Planner& planner, const std::vector<int64_t>& frames) {
  std::set<std::filesystem::path> folders;
  for (const int64_t frame : frames) {
    for (const frame::PlannedFile& file : planner.writes(frame)) {
      folders.insert(std::filesystem::path(file.path).parent_path());
    }
  }
  for (const auto& folder : folders) files::remove_leftovers(folder);
}

int exit_code(render::Outcome outcome) {
  switch (outcome) {
    case render::Outcome::done:
      return exit_done;
    case render::Outcome::nothing:
      return exit_nothing;
    case render::Outcome::memory:
      return exit_memory;
    case render::Outcome::interrupted:
      return exit_interrupted;
    case render::Outcome::some_failed:
      break;
  }
  return exit_some_failed;
}

// Beside the decoders and encoders: the pools of the image libraries, and a software driver's, which
// asks the environment. What a person set there stays.
void hold_threads(int threads) {
  if (threads == 0) return;
  files::hold_library_threads(threads);
  setenv("LP_NUM_THREADS", std::to_string(threads).c_str(), 0);
}

int dry_run(frame::Planner& planner, const std::vector<int64_t>& frames, frame::Existing existing) {
  bool complete = true;
  for (const int64_t frame : frames) {
    const frame::FramePlan plan = planner.frame(frame);
    std::cout << cli::plan_text(plan, existing);
    complete = complete && frame::can_render(plan, existing);
  }
  return complete ? exit_done : exit_some_failed;
}

void report_stats(const std::string& where, const render::Stats& stats) {
  if (where.empty()) return;
  if (where == "-") {
    std::cerr << cli::stats_text(stats);
    return;
  }
  const std::string json = cli::stats_json(stats);
  files::write_whole(where, {reinterpret_cast<const unsigned char*>(json.data()), json.size()});
}

}  // namespace

int render_frames(const RenderCommand& given) {
  RenderCommand command = given;
  const gpu::DeviceChoice device = device_choice(command.gpu);
  const shot::Composition composition = shot::read_composition(command.file);
  std::vector<int64_t>& frames = command.options.frames;
  frames = frames_to_render(composition, command.frames);
  if (frames.empty()) {
    std::cerr << "quorvel: --frames: " << command.frames << " leaves no frame to render\n";
    return exit_nothing;
  }
  frame::Planner planner(composition, command.options.scale, command.options.output);
  check_outputs(composition, command, planner.project());
  if (command.dry_run) return dry_run(planner, frames, command.options.existing);

  hold_threads(command.options.threads);
  const InterruptFlag interrupt;
  command.options.stop = &interrupt.raised();
  tidy_folders(planner, frames);
  gpu::GpuContext context = gpu::GpuContext::open(device);
  render::Renderer renderer(composition, command.options, context);
  const bool events = command.progress == cli::ProgressStyle::jsonl;
  const auto progress =
      cli::make_progress(command.progress, events ? std::cout : std::cerr, isatty(STDERR_FILENO) != 0);
  const render::Outcome outcome = renderer.run(*progress);
  report_stats(command.stats, renderer.stats());
  return exit_code(outcome);
}

int print_info(const InfoCommand& command) {
  const shot::Composition composition = shot::read_composition(command.file);
  if (command.dot) {
    std::cout << cli::graphviz(composition);
    return exit_done;
  }
  frame::Planner planner(composition, command.scale, "");
  const std::vector<std::string> missing = cli::missing_files(planner, composition.frames);
  std::cout << cli::info_text(composition, planner, missing);
  return missing.empty() ? exit_done : exit_some_failed;
}

int print_nodes(const NodesCommand& command) {
  if (command.schema) {
    std::cout << shot::composition_schema();
    return exit_done;
  }
  if (command.type.empty()) {
    std::cout << describe_catalogue();
    return exit_done;
  }
  const node::NodeType* type = nodes::find_type(command.type);
  if (!type) {
    std::vector<std::string> names;
    for (const node::NodeType& each : nodes::catalogue()) names.push_back(each.name);
    throw UsageError("unknown node type \"" + command.type + "\"" + did_you_mean(command.type, names));
  }
  std::cout << describe(*type);
  return exit_done;
}

}  // namespace host::cli
