#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/types.h>

namespace process {

// What the child finds; 0 and "" leave things as they are.
struct Setup {
  uint64_t largest_file = 0;   // bytes that a file may grow to before writing fails, as on a full disk
  uint64_t address_space = 0;  // bytes
  std::string folder = {};     // to start in
  std::string in_path = {};    // standard input
  std::string out_path = {};   // standard output, in place of a pipe
  bool terminal = false;       // messages go to a terminal
  bool mortal = false;         // permissions of files count, even for root
};

// A child that runs `quorvel` with its output in pipes.
class Quorvel {
 public:
  explicit Quorvel(const std::vector<std::string>& arguments, const Setup& setup = {});
  ~Quorvel();
  Quorvel(const Quorvel&) = delete;
  Quorvel& operator=(const Quorvel&) = delete;

  // Waits until it has printed something, then at most this long for its end.
  void wait_for_output(int then_ms);
  void send(int signal) const;

  // Collects the rest of its output and its end: the exit code, or minus the signal that ended it.
  int finish();

  std::string out;
  std::string err;

 private:
  bool read_some(int timeout_ms);

  pid_t pid_ = -1;
  int out_pipe_ = -1;
  int err_pipe_ = -1;
};

// Runs it to its end.
struct Ended {
  int code = 0;
  std::string out;
  std::string err;
};
Ended run(const std::vector<std::string>& arguments, const Setup& setup = {});

// An empty folder of this test, removed at the end of the process.
std::filesystem::path new_folder();

std::filesystem::path write_text(const std::filesystem::path& file, const std::string& text);

}  // namespace process
