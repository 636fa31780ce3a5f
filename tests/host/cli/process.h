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

// The same within this process, which takes no start: the words of a command line, from a folder.
Ended call(const std::string& words, const std::filesystem::path& folder);

// An empty folder of this test, removed at the end of the process.
std::filesystem::path new_folder();

std::filesystem::path write_text(const std::filesystem::path& file, const std::string& text);

// A composition of 32 x 18 pixels, or what `format` says, as a file. It may use the node `grey`.
std::string write_shot(const std::filesystem::path& file, const std::string& nodes,
                       const std::string& frames = "1-3",
                       const std::string& format = R"("width": 32, "height": 18)");

extern const std::string grey;  // a constant of 0.5
// A comma and a node that writes; without a file where the path is "-".
std::string write_node(const std::string& name, const std::string& input, const std::string& path);

}  // namespace process
