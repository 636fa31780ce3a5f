#pragma once

#include <memory>
#include <ostream>
#include <string>
#include <string_view>

namespace host::report {

// The text with control bytes but newlines shown as "\x1b": a name of a file or node is then no
// command to a terminal.
std::string printable(std::string_view text);

// While it lives, what a stream prints is made printable, if it goes to a terminal; files and pipes get
// the bytes as they are. The stream outlives it.
class TerminalGuard {
 public:
  TerminalGuard(std::ostream& stream, int descriptor);
  ~TerminalGuard();
  TerminalGuard(const TerminalGuard&) = delete;
  TerminalGuard& operator=(const TerminalGuard&) = delete;

 private:
  class Buffer;
  std::ostream& stream_;
  std::streambuf* bare_;
  std::unique_ptr<Buffer> guarded_;

  friend std::streambuf* bare_buffer(const std::ostream& stream);
};

// Where a stream's bytes go past a guard: for control sequences that are meant.
std::streambuf* bare_buffer(const std::ostream& stream);

}  // namespace host::report
