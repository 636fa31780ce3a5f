#pragma once

#include "host/live/keepsake.h"

#include <csignal>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include <sys/types.h>

namespace host::cli {

// What a process that a signal has ended, SIGINT or SIGTERM, leaves with.
int code_of(int signal);

// Stands in front of a process that serves a composition and may crash inside a driver: starts it by fork,
// waits for its end, and starts another one in its place when it has crashed after it had given an image.
// Holds Ctrl-C and requests to terminate back, so make it before any thread; one in a process.
class Keeper {
 public:
  // Throws std::system_error where there is no memory.
  explicit Keeper(std::filesystem::path composition);

  // Returns nothing in each process that is to serve, and in the one in front the code to leave with once
  // that is over. The first signal to end is handed on, the second ends what serves at once. Throws
  // std::runtime_error with the signal where nobody is started any more. After an end that nobody asked for,
  // what was not saved is in a file beside the composition.
  std::optional<int> run();

  // What follows is for the process that serves.

  // What became of the one before; "": it is the first.
  const std::string& story() const {
    return story_;
  }
  const std::shared_ptr<live::Keepsake>& keepsake() const {
    return keepsake_;
  }

  // Waits for SIGINT or SIGTERM. Later ones are for the process in front.
  int wait_for_end() const;

 private:
  void start();
  int wait();
  int left_with(int code) const;
  [[noreturn]] void give_up(const std::string& why) const;
  std::string rescued() const;

  const std::filesystem::path composition_;
  const std::shared_ptr<live::Keepsake> keepsake_;
  std::string story_;
  sigset_t ending_{};
  pid_t serving_ = 0;
  int asked_ = 0;  // the last signal to end
};

}  // namespace host::cli
