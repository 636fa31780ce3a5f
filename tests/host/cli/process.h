#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/types.h>

namespace process {

// A child that runs `quorvel` with its output in pipes.
class Quorvel {
 public:
  // largest_file: bytes that a file may grow to before writing fails, as on a full disk; 0: no limit.
  explicit Quorvel(const std::vector<std::string>& arguments, uint64_t largest_file = 0);
  ~Quorvel();
  Quorvel(const Quorvel&) = delete;
  Quorvel& operator=(const Quorvel&) = delete;

  // Waits until it has printed something to standard output, then at most this long for its end.
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
Ended run(const std::vector<std::string>& arguments, uint64_t largest_file = 0);

// An empty folder of this test, removed at the end of the process.
std::filesystem::path new_folder();

std::filesystem::path write_text(const std::filesystem::path& file, const std::string& text);

}  // namespace process
