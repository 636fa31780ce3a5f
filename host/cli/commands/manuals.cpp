#include <qv/version.h>

#include "host/base/suggest.h"
#include "host/cli/cli.h"
#include "host/cli/options.h"
#include "host/cli/table.h"
#include "host/manual/candidates.h"
#include "host/manual/completion.h"
#include "host/manual/man_page.h"

#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

// The commands that tell of the table itself.

namespace host::cli {
namespace {

int print_completion(const std::string& shell) {
  const std::string script = manual::completion_script(shell);
  if (script.empty()) {
    throw UsageError("expected one of \"bash\", \"zsh\", \"fish\", found \"" + shell + "\"" +
                     did_you_mean(shell, manual::shells()));
  }
  std::cout << script;
  return exit_done;
}

}  // namespace

Command add_completion(CLI::App& program) {
  CLI::App* const options = program.add_subcommand(
      "completion", "Prints what a shell completes the command by: source it, or install it.");
  const auto shell = std::make_shared<std::string>();
  options->add_option("shell", *shell, "Which shell")->type_name("bash|zsh|fish")->required();
  return {options, [shell] { return print_completion(*shell); }};
}

Command add_man(CLI::App& program) {
  CLI::App* const options = program.add_subcommand("man", "Prints the man page: quorvel man | man -l -");
  return {options, [&program] {
            std::cout << manual::man_page(program, qv::core_version());
            return exit_done;
          }};
}

// For those scripts alone, so help does not list it.
Command add_complete(CLI::App& program) {
  CLI::App* const options =
      program.add_subcommand("complete", "Prints how a command line may go on.")->group("");
  const auto words = std::make_shared<std::vector<std::string>>();
  options->add_option("words", *words, "What stands behind the program's name, after --");
  return {options, [&program, words] {
            std::cout << manual::candidate_lines(manual::candidates(program, *words));
            return exit_done;
          }};
}

}  // namespace host::cli
