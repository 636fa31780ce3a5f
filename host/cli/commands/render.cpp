#include "host/base/library_threads.h"
#include "host/cli/cli.h"
#include "host/cli/device.h"
#include "host/cli/interrupt.h"
#include "host/cli/options.h"
#include "host/cli/table.h"
#include "host/files/atomic_file.h"
#include "host/files/path.h"
#include "host/gpu/gpu_context.h"
#include "host/plan/plan.h"
#include "host/plates/headers.h"
#include "host/render/prepare.h"
#include "host/render_farm/journal.h"
#include "host/report/info.h"
#include "host/report/prediction_text.h"
#include "host/report/stats_text.h"
#include "host/shot/composition.h"

#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <unistd.h>

namespace host::cli {
namespace {

int exit_code(render::Outcome outcome, const InterruptFlag& interrupt) {
  switch (outcome) {
    case render::Outcome::done:
      return exit_done;
    case render::Outcome::nothing:
      return exit_nothing;
    case render::Outcome::memory:
      return exit_memory;
    case render::Outcome::interrupted:
      return interrupt.terminated() ? exit_put_back : exit_interrupted;
    case render::Outcome::some_failed:
      break;
  }
  return exit_some_failed;
}

// Nothing is drawn when frames are known to fail, unless the others are wanted all the same.
int refuse(const plan::Outlook& outlook, size_t frames) {
  std::cerr << report::problems_text(outlook.problems);
  std::cerr << "quorvel: " << outlook.failing << " of " << frames
            << " frames cannot be rendered; nothing was drawn (--keep-going renders the others)\n";
  return exit_some_failed;
}

int dry_run(plan::Planner& planner, const shot::Composition& composition, render::RenderOptions options,
            Device& device) {
  std::string text;  // kept until it is known that nothing is written over an input
  std::vector<int64_t> drawn;
  const auto add = [&](const plan::FramePlan& plan) {
    text += report::plan_text(plan);
    if (!plan.fails && !plan.skipped) drawn.push_back(plan.frame);
  };
  const plan::Outlook outlook = planner.look_ahead(options.frames, add);
  options.frames = std::move(drawn);
  std::cout << text;
  if (const auto memory = predicted(composition, options, device))
    std::cout << report::prediction_text(*memory);
  return outlook.failing == 0 ? exit_done : exit_some_failed;
}

void report_stats(const std::string& where, const draw::Stats& stats) {
  if (where.empty()) return;
  if (where == "-") {
    std::cerr << report::stats_text(stats);
    return;
  }
  const std::string json = report::stats_json(stats);
  files::write_whole(where, {reinterpret_cast<const unsigned char*>(json.data()), json.size()});
}

int render_frames(RenderCommand command) {
  const gpu::DeviceChoice device = device_choice(command.gpu);
  const auto shared = std::make_shared<const shot::Composition>(command.shot.read());
  const shot::Composition& composition = *shared;
  std::vector<int64_t>& frames = command.options.frames;
  frames = frames_to_render(composition, command.frames);
  if (frames.empty()) {
    std::cerr << "quorvel: --frames: " << command.frames << " leaves no frame to render\n";
    return exit_nothing;
  }
  render::RenderOptions& options = command.options;
  options.headers = std::make_shared<plates::Headers>();
  Device opened(device);
  plan::Planner planner(composition, {options.scale, options.outputs, options.existing,
                                      [&opened] { return opened.context().max_texture_size(); },
                                      options.headers, options.by_content});
  planner.targets().check(frames);
  // Beside the decoders and encoders: the pools of the image libraries, and a software driver's.
  hold_threads(options.threads);
  if (command.dry_run) return dry_run(planner, composition, options, opened);

  const plan::Outlook outlook = render::prepare(planner, options);
  if (render::refused(outlook, options)) return refuse(outlook, frames.size());
  if (command.tells_progress()) std::cerr << report::quick_look_text(composition, planner.targets(), frames);
  const InterruptFlag interrupt;
  options.stop = &interrupt.raised();
  render::Renderer renderer(shared, options, opened.context());
  const bool events = command.progress == report::ProgressStyle::jsonl;
  const auto progress = report::make_progress(command.progress, command.log_level,
                                              events ? std::cout : std::cerr, isatty(STDERR_FILENO) != 0);
  std::unique_ptr<render_farm::Journal> journal;
  std::unique_ptr<render::Progress> noted;
  if (!command.journal.empty()) {
    journal = std::make_unique<render_farm::Journal>(files::expanded(command.journal));
    noted = render_farm::journalled(*progress, *journal);
  }
  const render::Outcome outcome = renderer.run(options, noted ? *noted : *progress);
  const bool debug = command.log_level == report::LogLevel::debug && command.stats.empty();
  report_stats(debug ? "-" : command.stats, renderer.stats());
  return exit_code(outcome, interrupt);
}

}  // namespace

Command add_render(CLI::App& program) {
  CLI::App* const options = program.add_subcommand("render", "Renders frames of a composition to files.");
  const auto given = std::make_shared<RenderCommand>();
  add_composition(*options, given->shot);
  add_render_options(*options, *given);
  return {options, [given] { return render_frames(*given); }};
}

}  // namespace host::cli
