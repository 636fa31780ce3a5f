#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace host::render_farm {

// What the scheduler knows of one task of an array job.
struct Task {
  std::string state;  // PENDING, RUNNING, COMPLETED, FAILED, ...
  std::string node;
  std::string reason;  // why it waits: in words where the scheduler has some
  int restarts = 0;
  std::string id;  // "12_3", or "12" of a job that is no array
};

// A scheduler that cannot be reached, or that refused; it has said why on standard error.
class SchedulerError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Runs a program to its end, its messages going to standard error. The exit code, and what it printed. Throws
// SchedulerError when there is no such program.
struct Ended {
  int code = 0;  // 128 and the signal, where one ended it
  std::string out;
};
Ended run_program(const std::vector<std::string>& words);

// Hands a batch script to the scheduler; its number. Throws SchedulerError.
std::string submit(const std::filesystem::path& script, const std::vector<std::string>& options);

// The tasks of an array job that the scheduler knows of, by their index; a job that is no array is task 0.
// Those that ended are forgotten after some minutes. Throws SchedulerError.
std::map<int, Task> tasks_of(const std::string& job);

// Whether a task has not ended.
bool is_live(const Task& task);

// Lets tasks go that the scheduler holds until somebody does, since a node could not start them; it does so
// even to tasks that have ended elsewhere by then. How many. Throws SchedulerError.
int release_held(const std::string& job);

// As tasks_of, from what `squeue --json` printed, by any version from 22.05 on. Throws std::runtime_error.
std::map<int, Task> tasks_in(const std::string& json, const std::string& job);

// How many tasks an array job may have; 1000 where the scheduler does not say.
int most_tasks();

// What runs the tasks of a job with these options for sbatch: the nodes of its partition, or else of the
// usual one. Throws SchedulerError.
struct Machines {
  int nodes = 1;
  int processors = 0;  // of all nodes; 0: unknown
};
Machines machines(const std::vector<std::string>& options);

}  // namespace host::render_farm
