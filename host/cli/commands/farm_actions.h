#pragma once

#include "host/cli/options.h"

#include <cstdint>
#include <string>
#include <vector>

namespace host::cli {

// What a person says of frames on many machines.
struct FarmCommand {
  RenderCommand render;
  int64_t chunk = 0;  // frames; 0: by the time they take
  int retries = 3;
  std::vector<std::string> extra;
  bool wait = false, json = false, watch = false, yaml = false, task_chunking = false;
  std::string format = "sbatch";
};

// What each of the farm's commands does. They print results to standard output, return an ExitCode, and throw
// what cli.cpp knows.
int submit(const FarmCommand& given);
int retry(const FarmCommand& given);
int status(const FarmCommand& given);
int cancel(const FarmCommand& given);
int export_job(const FarmCommand& given);

}  // namespace host::cli
