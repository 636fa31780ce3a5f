#pragma once

#include "host/render/renderer.h"
#include "host/report/progress.h"

#include <stdexcept>
#include <string>

namespace CLI {
class App;
}

namespace host::cli {

// Something that the person who typed the command can put right; the text says what and how.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What --help says of the exit codes.
extern const char* const exit_codes;

// What a person says of a rendering.
struct RenderCommand {
  std::string file;
  std::string frames;  // as typed; "" for the composition's own
  std::string gpu = "auto";
  std::string stats;  // "" none, "-" for people, else the path of a JSON file
  report::ProgressStyle progress = report::ProgressStyle::automatic;
  bool dry_run = false;
  render::RenderOptions options;  // all but `frames` and `stop`, which the command fills in
};

// The composition, the argument of every command that reads one.
void add_composition(CLI::App& command, std::string& file);

// Everything that a rendering takes; `given` is filled in as the command line is parsed and outlives it.
void add_render_options(CLI::App& command, RenderCommand& given);

}  // namespace host::cli
