#include "bench/host/job.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {
namespace {

constexpr const char* log_name = "/tmp/quorvel-bench-host.log";

pid_t start(const std::vector<std::string>& command) {
  std::vector<char*> argv;
  for (const std::string& argument : command) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  const pid_t child = fork();
  if (child != 0) return child;
  const int log = open(log_name, O_WRONLY | O_CREAT | O_TRUNC, 0600);
  dup2(log, STDOUT_FILENO);
  dup2(log, STDERR_FILENO);
  execvp(argv[0], argv.data());
  _exit(127);
}

}  // namespace

Cost run_commands(const std::vector<std::vector<std::string>>& commands) {
  Cost cost;
  const auto begin = std::chrono::steady_clock::now();
  for (const auto& command : commands) {
    int status = 0;
    rusage usage{};
    wait4(start(command), &status, 0, &usage);
    cost.peak_mib = std::max(cost.peak_mib, static_cast<double>(usage.ru_maxrss) / 1024);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      std::fprintf(stderr, "bench_host: %s failed; see %s\n", command[0].c_str(), log_name);
      std::exit(1);
    }
  }
  cost.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  return cost;
}

std::string last_output() {
  std::ifstream log(log_name);
  return {std::istreambuf_iterator<char>(log), {}};
}

bool has_program(const std::string& name) {
  return std::system(("command -v " + name + " >/dev/null").c_str()) == 0;
}

}  // namespace bench
