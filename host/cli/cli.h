#pragma once

namespace host::cli {

// What the process ends with. Never `done` while a frame is missing.
enum ExitCode : int {
  exit_done = 0,
  exit_some_failed = 1,
  exit_usage = 2,    // wrong usage, a composition with errors, or an image that `info` cannot read
  exit_nothing = 3,  // no frame to render
  exit_memory = 4,
  exit_no_gl = 5,
  exit_put_back = 75,  // SIGTERM, as a scheduler sends it: start me again elsewhere
  exit_interrupted = 130,
};

// The command line, as its table has it. Prints results to standard output, messages and progress to
// standard error. Returns an ExitCode and never throws.
int run(int argc, char** argv);

}  // namespace host::cli
