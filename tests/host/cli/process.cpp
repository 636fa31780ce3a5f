#include "tests/host/cli/process.h"

#include "host/cli/cli.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <linux/capability.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace process {
namespace {

std::array<int, 2> new_pipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
  return ends;
}

// Both ends of a terminal, the one to read from first.
std::array<int, 2> new_terminal() {
  const int reader = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (reader < 0 || grantpt(reader) != 0 || unlockpt(reader) != 0) throw std::runtime_error("no terminal");
  return {reader, open(ptsname(reader), O_RDWR | O_NOCTTY | O_CLOEXEC)};
}

void limit(decltype(RLIMIT_AS) what, uint64_t bytes) {
  if (bytes == 0) return;
  const rlimit most{bytes, bytes};
  setrlimit(what, &most);
}

// In the child, between fork and exec.
void apply(const Setup& setup) {
  // Ignored, the signal turns into an error of the write, as a full disk gives one.
  std::signal(SIGXFSZ, SIG_IGN);
  limit(RLIMIT_FSIZE, setup.largest_file);
  limit(RLIMIT_AS, setup.address_space);
  if (!setup.folder.empty() && chdir(setup.folder.c_str()) != 0) _exit(126);
  if (!setup.in_path.empty()) dup2(open(setup.in_path.c_str(), O_RDONLY), STDIN_FILENO);
  if (!setup.out_path.empty()) dup2(open(setup.out_path.c_str(), O_WRONLY), STDOUT_FILENO);
  if (setup.mortal) prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE, 0, 0, 0);
}

}  // namespace

Quorvel::Quorvel(const std::vector<std::string>& arguments, const Setup& setup) {
  const auto out_ends = new_pipe();
  const auto err_ends = setup.terminal ? new_terminal() : new_pipe();
  std::vector<const char*> argv = {QUORVEL_PROGRAM};
  for (const std::string& argument : arguments) argv.push_back(argument.c_str());
  argv.push_back(nullptr);
  pid_ = fork();
  if (pid_ == 0) {
    dup2(out_ends[1], STDOUT_FILENO);
    dup2(err_ends[1], STDERR_FILENO);
    apply(setup);
    execv(argv[0], const_cast<char* const*>(argv.data()));
    _exit(127);
  }
  close(out_ends[1]);
  close(err_ends[1]);
  out_pipe_ = out_ends[0];
  err_pipe_ = err_ends[0];
}

Quorvel::~Quorvel() {
  if (pid_ > 0) {
    send(SIGKILL);
    finish();
  }
  close(out_pipe_);
  close(err_pipe_);
}

bool Quorvel::read_some(int timeout_ms) {
  std::array<int*, 2> ends = {&out_pipe_, &err_pipe_};
  std::array<pollfd, 2> pipes = {pollfd{out_pipe_, POLLIN, 0}, pollfd{err_pipe_, POLLIN, 0}};
  if ((out_pipe_ < 0 && err_pipe_ < 0) || poll(pipes.data(), pipes.size(), timeout_ms) <= 0) return false;
  std::array<char, 4096> buffer{};
  for (size_t i = 0; i < pipes.size(); ++i) {
    if (pipes[i].revents == 0) continue;
    const ssize_t count = read(pipes[i].fd, buffer.data(), buffer.size());
    if (count > 0) {
      (i == 0 ? out : err).append(buffer.data(), static_cast<size_t>(count));
    } else {
      close(std::exchange(*ends[i], -1));
    }
  }
  return true;
}

void Quorvel::wait_for_output(int then_ms) {
  while (out.empty() && err.empty() && read_some(-1)) continue;
  using Clock = std::chrono::steady_clock;
  const auto end = Clock::now() + std::chrono::milliseconds(then_ms);
  for (auto now = Clock::now(); now < end; now = Clock::now()) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - now).count();
    if (!read_some(static_cast<int>(left) + 1)) break;
  }
}

void Quorvel::send(int signal) const {
  kill(pid_, signal);
}

int Quorvel::finish() {
  while (read_some(-1)) continue;
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

Ended run(const std::vector<std::string>& arguments, const Setup& setup) {
  Quorvel child(arguments, setup);
  const int code = child.finish();
  return {code, child.out, child.err};
}

Ended call(const std::string& words, const std::filesystem::path& folder) {
  std::istringstream line("quorvel " + words);
  std::vector<std::string> arguments{std::istream_iterator<std::string>(line), {}};
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  const auto before = std::filesystem::current_path();
  std::ostringstream out, err;
  auto* const out_buffer = std::cout.rdbuf(out.rdbuf());
  auto* const err_buffer = std::cerr.rdbuf(err.rdbuf());
  std::filesystem::current_path(folder);
  const int code = host::cli::run(static_cast<int>(argv.size()), argv.data());
  std::filesystem::current_path(before);
  std::cout.rdbuf(out_buffer);
  std::cerr.rdbuf(err_buffer);
  return {code, out.str(), err.str()};
}

std::filesystem::path new_folder() {
  struct Root {
    std::filesystem::path path;
    int folders = 0;
    Root() {
      std::string name = (std::filesystem::temp_directory_path() / "quorvel-cli-XXXXXX").string();
      if (!mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
      path = name;
    }
    ~Root() {
      std::error_code ignored;
      std::filesystem::remove_all(path, ignored);
    }
  };
  static Root root;
  const auto folder = root.path / std::to_string(root.folders++);
  std::filesystem::create_directory(folder);
  return folder;
}

std::filesystem::path write_text(const std::filesystem::path& file, const std::string& text) {
  std::ofstream(file) << text;
  return file;
}

const std::string grey = R"({"name": "grey", "type": "constant", "knobs": {"color": [0.5, 0.5, 0.5, 1]}})";

std::string write_node(const std::string& name, const std::string& input, const std::string& path) {
  return R"(, {"name": ")" + name + R"(", "type": "write", "inputs": ")" + input + "\"" +
         (path == "-" ? "}" : R"(, "knobs": {"file": ")" + path + "\"}}");
}

std::string write_shot(const std::filesystem::path& file, const std::string& nodes, const std::string& frames,
                       const std::string& format) {
  return write_text(
      file, R"({"format": {)" + format + R"(}, "frames": ")" + frames + R"(", "nodes": [)" + nodes + "]}");
}

}  // namespace process
