#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace host::cli {

// A command: its part of the table of options, and what it does once they are parsed.
struct Command {
  CLI::App* options = nullptr;
  std::function<int()> run;  // prints to standard output, returns an ExitCode, throws what cli.cpp knows
};

// Each adds one command to the table, in the order in which people meet them. The table is the only place
// where an option is described: help, the man page and what shells complete are made from it.
Command add_render(CLI::App& program);
Command add_live(CLI::App& program);
Command add_info(CLI::App& program);
Command add_nodes(CLI::App& program);
Command add_compare(CLI::App& program);
Command add_verify(CLI::App& program);
Command add_farm(CLI::App& program);
Command add_completion(CLI::App& program);
Command add_man(CLI::App& program);
Command add_complete(CLI::App& program);

// The command line: every command with its options, and the variables that these fill in.
class Table {
 public:
  Table();
  ~Table();
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;

  // Parses and runs a command line. Returns an ExitCode; throws what its command throws.
  int parse_and_run(int argc, const char* const* argv);

 private:
  std::unique_ptr<CLI::App> program_;
  std::vector<Command> commands_;
};

}  // namespace host::cli
