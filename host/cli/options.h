#pragma once

#include "host/render/renderer.h"
#include "host/report/progress.h"
#include "host/shot/composition.h"

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace host::cli {

// Something that the person who typed the command can put right; the text says what and how.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What --help says of the exit codes.
extern const char* const exit_codes;

// A composition as a person asks for it.
struct ShotChoice {
  std::string file;
  shot::Asked asked;

  shot::Composition read() const {
    return shot::read_composition(file, asked);
  }
};

// What a person says of a rendering.
struct RenderCommand {
  ShotChoice shot;
  std::string frames;  // as typed; "" for the composition's own
  std::string gpu = "auto";
  std::string stats;  // "" none, "-" for people, else the path of a JSON file
  report::ProgressStyle progress = report::ProgressStyle::automatic;
  std::string journal;  // a path, "" for none
  report::LogLevel log_level = report::LogLevel::info;
  bool dry_run = false;
  render::RenderOptions options;  // all but `frames` and `stop`, which the command fills in

  bool tells_progress() const {
    return log_level >= report::LogLevel::info && progress != report::ProgressStyle::none;
  }
};

// An option whose text `take` reads, and refuses by throwing CLI::ValidationError. type: as help shows it.
void add_parsed(CLI::App& command, const std::string& name, const std::string& type, const std::string& help,
                std::function<void(const std::string&)> take);

// What is asked of a composition. Here and below: `given` is filled in as the command line is parsed, and
// outlives it.
void add_asked(CLI::App& command, shot::Asked& given);

// The composition and what is asked of it, for every command that reads one.
void add_composition(CLI::App& command, ShotChoice& given);

// What decides on the files and what is in them: frames, --output, --proxy.
void add_target_options(CLI::App& command, RenderCommand& given);

void add_proxy(CLI::App& command, double& scale, const std::string& help);

// What drawing takes of a machine: --threads, --memory, --gpu.
void add_device_options(CLI::App& command, RenderCommand& given);

// The same, and how files that are read are known.
void add_machine_options(CLI::App& command, RenderCommand& given);

void add_threads(CLI::App& command, int& threads, const std::string& help);

// Everything else that a rendering takes.
void add_render_options(CLI::App& command, RenderCommand& given);

// What was asked for, or the composition's own; a list that only leaves out does so from those.
std::vector<int64_t> frames_to_render(const shot::Composition& composition, const std::string& asked);

}  // namespace host::cli
