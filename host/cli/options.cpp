#include "host/cli/options.h"

#include "host/base/byte_size.h"
#include "host/base/suggest.h"
#include "host/shot/frames.h"

#include <charconv>
#include <cstdint>
#include <system_error>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

namespace host::cli {
namespace {

uint64_t parse_bytes(const std::string& text) {
  if (const auto bytes = parse_byte_size(text)) return *bytes;
  throw CLI::ValidationError("--memory", "expected a size such as 4G or 512M, found \"" + text + "\"");
}

double parse_scale(const std::string& text) {
  double scale = 0;
  const char* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, scale);
  if (parsed.ec != std::errc() || parsed.ptr != end || !(scale > 0 && scale <= 1)) {
    throw CLI::ValidationError("--proxy", "expected a number above 0 and at most 1, found \"" + text + "\"");
  }
  return scale;
}

// An option that takes one of a few words, which its help names and shells complete.
template <class Value>
void add_choice(CLI::App& command, const std::string& name,
                const std::vector<std::pair<std::string, Value>>& choices, Value& chosen,
                const std::string& help) {
  std::string words, quoted;
  std::vector<std::string> names;
  for (const auto& choice : choices) {
    words += (words.empty() ? "" : "|") + choice.first;
    quoted += (quoted.empty() ? "\"" : ", \"") + choice.first + "\"";
    names.push_back(choice.first);
  }
  const auto parse = [=, &chosen](const CLI::results_t& given) {
    for (const auto& [word, value] : choices) {
      if (word != given.at(0)) continue;
      chosen = value;
      return true;
    }
    throw CLI::ValidationError(name, "expected one of " + quoted + ", found \"" + given.at(0) + "\"" +
                                         did_you_mean(given.at(0), names));
  };
  command.add_option(name, parse, help)->type_name(words);
}

}  // namespace

const char* const exit_codes =
    "Exit codes:\n"
    "  0    every frame stands: written, or there already with --skip-existing or --skip-current\n"
    "  1    some frames failed or were seen to fail beforehand, images differ, or results could not be "
    "printed\n"
    "  2    wrong usage, a composition with errors, or an image that info cannot read\n"
    "  3    no frame to render\n"
    "  4    out of memory, or an image is larger than --memory\n"
    "  5    no usable OpenGL\n"
    "  75   ended by SIGTERM: to be started again; files are whole or not there\n"
    "  130  interrupted; files are whole or not there\n";

void add_parsed(CLI::App& command, const std::string& name, const std::string& type, const std::string& help,
                std::function<void(const std::string&)> take) {
  const auto take_first = [take = std::move(take)](const CLI::results_t& given) {
    take(given.at(0));
    return true;
  };
  command.add_option(name, take_first, help)->type_name(type);
}

void add_asked(CLI::App& command, shot::Asked& given) {
  // One value an option, or it would take the composition as well.
  command
      .add_option("--set", given.settings,
                  "Give a knob another value, as in the composition: soft.size=8, plate.file=b.####.exr; "
                  "again for others")
      ->type_name("NODE.KNOB=VALUE")
      ->allow_extra_args(false);
  command
      .add_option("--node", given.nodes,
                  "Take this node for the output, to look at it; without -o it goes to SHOT.NODE.####.exr "
                  "beside the composition")
      ->type_name("NODE")
      ->allow_extra_args(false);
  command.add_option("--views", given.views, "Those of the composition's views to render, with commas")
      ->type_name("VIEWS")
      ->delimiter(',')
      ->allow_extra_args(false);
}

void add_composition(CLI::App& command, ShotChoice& given) {
  command.add_option("composition", given.file, "Composition, a JSON file")->type_name("FILE")->required();
  add_asked(command, given.asked);
}

void add_target_options(CLI::App& command, RenderCommand& given) {
  render::RenderOptions& options = given.options;
  command
      .add_option("-f,--frames", given.frames,
                  "Frames: 7  1-10  1-100x10 (every tenth)  3,7,9  -5--1  ^5 (leave out)")
      ->type_name("LIST");
  command
      .add_option(
          "-o,--output", options.outputs,
          "Path of the output, in place of the composition's; again for each of several, with its node; "
          "#### or %04d is the frame, %V the view")
      ->type_name("[NODE=]PATH")
      ->allow_extra_args(false);
  add_proxy(command, options.scale, "Render at this scale, above 0 and at most 1");
}

void add_proxy(CLI::App& command, double& scale, const std::string& help) {
  add_parsed(command, "--proxy", "SCALE", help,
             [&scale](const std::string& text) { scale = parse_scale(text); });
}

void add_threads(CLI::App& command, int& threads, const std::string& help) {
  command.add_option("--threads", threads, help)->type_name("N")->check(CLI::Range(0, 1024).description(""));
}

void add_device_options(CLI::App& command, RenderCommand& given) {
  render::RenderOptions& options = given.options;
  add_threads(command, options.threads,
              "Threads that decode and encode, and as many that draw in software; 0: one a processor");
  add_parsed(command, "--memory", "BYTES",
             "Memory for images, on the device, decoded and on their way to files, such as 512M or 4G "
             "(default 2G); beside it stand what one node works on, and the program itself",
             [&options](const std::string& text) { options.memory = parse_bytes(text); });
  command.add_option("--gpu", given.gpu, "Device: auto (the default), software, or its number")
      ->type_name("DEVICE");
}

void add_machine_options(CLI::App& command, RenderCommand& given) {
  add_device_options(command, given);
  command.add_flag("--content", given.options.by_content,
                   "Know files that are read by their bytes, not by size and date, for --skip-current");
}

void add_existing_options(CLI::App& command, plan::Existing& existing) {
  command.add_flag(
      "--overwrite", [&existing](int64_t) { existing = plan::Existing::overwrite; },
      "Replace files that are there already");
  command
      .add_flag(
          "--skip-existing", [&existing](int64_t) { existing = plan::Existing::skip; },
          "Leave frames alone whose files are there already")
      ->excludes("--overwrite");
  command
      .add_flag(
          "--skip-current", [&existing](int64_t) { existing = plan::Existing::current; },
          "Leave frames alone whose files were made from what the composition and its inputs are now, and "
          "replace other files")
      ->excludes("--overwrite")
      ->excludes("--skip-existing");
}

void add_render_options(CLI::App& command, RenderCommand& given) {
  render::RenderOptions& options = given.options;
  command.footer(exit_codes);
  add_target_options(command, given);
  add_existing_options(command, options.existing);
  command.add_flag("--keep-going", options.keep_going, "Go on after a frame that failed");
  command.add_flag(
      "--dry-run", given.dry_run,
      "Print what would be computed, read and written, what is missing, and the memory it takes");
  add_machine_options(command, given);
  using Style = report::ProgressStyle;
  add_choice<Style>(
      command, "--progress",
      {{"auto", Style::automatic}, {"plain", Style::plain}, {"jsonl", Style::jsonl}, {"none", Style::none}},
      given.progress,
      "A bar on a terminal and else lines (auto), lines, events on standard output (jsonl), what is wrong "
      "alone (none)");
  using Level = report::LogLevel;
  add_choice<Level>(
      command, "--log-level",
      {{"error", Level::error}, {"warning", Level::warning}, {"info", Level::info}, {"debug", Level::debug}},
      given.log_level,
      "What standard error tells: what is wrong (error), notices too (warning), progress too (info, the "
      "default), a line a frame and --stats too (debug)");
  command.add_flag("--stats{-}", given.stats,
                   "Say where time and memory went; --stats=FILE writes it as JSON");
  command
      .add_option("--journal", given.journal,
                  "Append a line of JSON for every frame to this file, which several renderings may share")
      ->type_name("FILE");
}

std::vector<int64_t> frames_to_render(const shot::Composition& composition, const std::string& asked) {
  if (asked.empty()) return composition.frames;
  std::vector<int64_t> frames = shot::parse_frames(asked);
  if (!frames.empty() || asked.front() != '^') return frames;
  return shot::parse_frames(shot::frames_text(composition.frames) + "," + asked);
}

}  // namespace host::cli
