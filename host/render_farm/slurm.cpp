#include "host/render_farm/slurm.h"

#include "host/shot/frames.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace host::render_farm {
namespace {

// Numbers stand as they are, or since 23.11 as {"set": true, "number": 7}.
std::optional<int64_t> number_in(const nlohmann::json& object, const char* name) {
  const auto found = object.find(name);
  if (found == object.end()) return std::nullopt;
  if (found->is_number_integer()) return found->get<int64_t>();
  if (!found->is_object() || !found->value("set", false)) return std::nullopt;
  return found->value("number", int64_t{0});
}

// States stand as they are, or since 23.11 as a list whose first is the state and others tell more.
std::string state_in(const nlohmann::json& object) {
  const auto found = object.find("job_state");
  if (found == object.end()) return "";
  if (found->is_string()) return found->get<std::string>();
  return found->is_array() && !found->empty() ? found->front().get<std::string>() : "";
}

// Tasks that have not begun stand together: "3-9,12%4".
std::vector<int64_t> indices_in(const nlohmann::json& object) {
  if (const auto one = number_in(object, "array_task_id")) return {*one};
  const std::string all = object.value("array_task_string", "");
  if (all.empty()) return {0};
  return shot::parse_frames(all.substr(0, all.find('%')));
}

// From lines of partition, nodes, and processors as allocated/idle/other/total; a star marks the usual one.
Machines machines_in(const std::string& text, const std::string& partition) {
  Machines all{0, 0};
  std::istringstream lines(text);
  std::string name, processors;
  for (int nodes = 0; lines >> name >> nodes >> processors;) {
    const bool usual = name.ends_with('*');
    if (usual) name.pop_back();
    const bool asked = ("," + partition + ",").find("," + name + ",") != std::string::npos;
    if (partition.empty() ? !usual : !asked) continue;
    all.nodes += nodes;
    all.processors += std::atoi(processors.c_str() + processors.rfind('/') + 1);
  }
  return {std::max(1, all.nodes), all.processors};
}

}  // namespace

Ended run_program(const std::vector<std::string>& words) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw SchedulerError(words[0] + ": no pipe");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  std::vector<std::string> copies = words;
  std::vector<char*> argv;
  argv.reserve(copies.size() + 1);
  for (std::string& word : copies) argv.push_back(word.data());
  argv.push_back(nullptr);
  pid_t process = 0;
  const int failed = ::posix_spawnp(&process, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(ends[1]);
  Ended ended;
  std::array<char, 1 << 16> block{};
  for (ssize_t count = 1; failed == 0 && (count > 0 || (count < 0 && errno == EINTR));) {
    count = ::read(ends[0], block.data(), block.size());
    if (count > 0) ended.out.append(block.data(), static_cast<size_t>(count));
  }
  ::close(ends[0]);
  if (failed != 0) throw SchedulerError(words[0] + " cannot be run: is Slurm installed here?");
  int status = 0;
  while (::waitpid(process, &status, 0) < 0 && errno == EINTR) continue;
  ended.code = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
  return ended;
}

std::string submit(const std::filesystem::path& script, const std::vector<std::string>& options) {
  std::vector<std::string> words = {"sbatch", "--parsable"};
  words.insert(words.end(), options.begin(), options.end());
  words.push_back(script.string());
  const Ended ended = run_program(words);
  // "12" or "12;cluster", and a line's end.
  std::string id = ended.out.substr(0, ended.out.find_first_of(";\n"));
  if (ended.code != 0 || id.empty()) throw SchedulerError("sbatch refused " + script.string());
  return id;
}

std::map<int, Task> tasks_in(const std::string& json, const std::string& job) {
  std::map<int, Task> tasks;
  const auto whole = nlohmann::json::parse(json, nullptr, false);
  if (!whole.is_object() || !whole.contains("jobs"))
    throw SchedulerError("squeue --json: is no list of jobs");
  // It ends with 0 and an empty list where nobody answered.
  if (!whole.value("errors", nlohmann::json::array()).empty()) throw SchedulerError("squeue got no answer");
  for (const auto& each : whole.at("jobs")) {
    const int64_t array = number_in(each, "array_job_id").value_or(0);
    if (std::to_string(array != 0 ? array : number_in(each, "job_id").value_or(0)) != job) continue;
    const std::string words = each.value("state_description", "");
    Task task{state_in(each),
              each.value("nodes", ""),
              words.empty() ? each.value("state_reason", "") : words,
              static_cast<int>(number_in(each, "restart_cnt").value_or(0)),
              {}};
    for (const int64_t index : indices_in(each)) {
      task.id = array != 0 ? job + "_" + std::to_string(index) : job;
      tasks[static_cast<int>(index)] = task;
    }
  }
  return tasks;
}

std::map<int, Task> tasks_of(const std::string& job) {
  // Else a long list of tasks ends in dots.
  ::setenv("SLURM_BITSTR_LEN", "0", 1);
  const Ended ended = run_program({"squeue", "--json"});
  if (ended.code != 0) throw SchedulerError("squeue does not answer");
  return tasks_in(ended.out, job);
}

bool is_live(const Task& task) {
  constexpr std::array<const char*, 7> live = {"PENDING",   "RUNNING",  "COMPLETING", "CONFIGURING",
                                               "SUSPENDED", "REQUEUED", "STAGE_OUT"};
  return std::find(live.begin(), live.end(), task.state) != live.end();
}

int release_held(const std::string& job) {
  int released = 0;
  for (const auto& [index, task] : tasks_of(job)) {
    if (task.state != "PENDING" || !task.reason.starts_with("launch failed")) continue;
    released += run_program({"scontrol", "release", task.id}).code == 0 ? 1 : 0;
  }
  return released;
}

int most_tasks() {
  constexpr int usual = 1000;
  const Ended ended = run_program({"scontrol", "show", "config"});
  const size_t at = ended.out.find("MaxArraySize");
  if (ended.code != 0 || at == std::string::npos) return usual;
  const size_t digits = ended.out.find_first_of("0123456789", at);
  // The number is one more than the highest index.
  return digits == std::string::npos ? usual : std::max(1, std::atoi(ended.out.c_str() + digits) - 1);
}

Machines machines(const std::vector<std::string>& options) {
  const char* const usual = std::getenv("SBATCH_PARTITION");
  std::string partition = usual ? usual : "";
  for (const std::string& each : options)
    for (const char* const name : {"--partition=", "--partition ", "-p ", "-p"})
      if (each.starts_with(name)) {
        partition = each.substr(std::strlen(name));
        break;
      }
  return machines_in(run_program({"sinfo", "-h", "-o", "%P %D %C"}).out, partition);
}

}  // namespace host::render_farm
