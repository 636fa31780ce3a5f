#include "host/cli/table.h"

#include <qv/version.h>

#include "host/base/suggest.h"
#include "host/cli/cli.h"
#include "host/cli/options.h"

#include <algorithm>
#include <initializer_list>
#include <iostream>
#include <utility>

#include <CLI/CLI.hpp>

namespace host::cli {
namespace {

// A report of a fault should say which image library was at work. Asking loads it.
std::string version_text() {
  const std::string loaded = qv::oiio_runtime_version();
  return std::string("quorvel ") + qv::core_version() + "\nOpenImageIO " +
         (loaded.empty() ? "cannot be loaded" : loaded) + ", built with " + qv::oiio_header_version();
}

// The help of a flag that may be given a value shows the value, and not what stands for its absence.
class HelpFormatter final : public CLI::Formatter {
 public:
  std::string make_option_name(const CLI::Option* option, bool is_positional) const override {
    std::string name = Formatter::make_option_name(option, is_positional);
    const size_t brace = name.find("{-}");
    return brace == std::string::npos ? name : name.replace(brace, 3, "[=FILE]");
  }
};

// Those that help lists.
std::vector<std::string> command_names(const CLI::App& program) {
  std::vector<std::string> names;
  for (const CLI::App* command : program.get_subcommands([](const CLI::App*) { return true; })) {
    if (!command->get_group().empty()) names.push_back(command->get_name());
  }
  return names;
}

// "render, info, nodes or compare".
std::string either(const std::vector<std::string>& names) {
  std::string text;
  for (size_t i = 0; i < names.size(); ++i) {
    text += (i == 0 ? "" : i + 1 < names.size() ? ", " : " or ") + names[i];
  }
  return text;
}

// The command that was typed, of those below one; itself where none was.
const CLI::App& deepest(const CLI::App& command) {
  const CLI::App* at = &command;
  while (!at->get_subcommands().empty()) at = at->get_subcommands().front();
  return *at;
}

// The first argument that no command understood, with what may have been meant.
void refuse_extras(const CLI::App& command) {
  std::vector<std::string> extras = command.remaining();
  std::erase(extras, "--");  // the parser leaves it there, though it parts options from what follows
  if (extras.empty()) return;
  const std::string& extra = extras.front();
  if (extra.rfind('-', 0) != 0) throw UsageError("unexpected argument \"" + extra + "\"");
  std::vector<std::string> names;
  for (const CLI::Option* option : command.get_options()) {
    for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
  }
  const std::string typed = extra.substr(0, extra.find('='));
  throw UsageError("unknown option \"" + typed + "\"" + did_you_mean(typed, names));
}

// A command that is no command is worth a suggestion as well.
std::string parse_error_text(const CLI::App& program, const CLI::ParseError& error) {
  const CLI::App& command = deepest(program);
  const std::vector<std::string> extras = command.remaining();
  const std::vector<std::string> names = command_names(command);
  if (dynamic_cast<const CLI::RequiredError*>(&error) && !names.empty()) {
    if (extras.empty()) return "expected a command: " + either(names) + "; see quorvel --help";
    return "unknown command \"" + extras.front() + "\"" + did_you_mean(extras.front(), names);
  }
  return std::string(error.what()) + "; see --help";
}

}  // namespace

Table::Table()
    : program_(std::make_unique<CLI::App>("Renders compositions of image nodes to files.", "quorvel")) {
  program_->set_version_flag("--version", version_text);
  program_->require_subcommand(1);
  program_->formatter(std::make_shared<HelpFormatter>());
  program_->footer(std::string("Each command has a --help of its own.\n\n") + exit_codes);
  // Left over arguments are reported with a suggestion, which the parser would not give.
  program_->allow_extras();
  for (const auto add : {add_render, add_live, add_info, add_nodes, add_compare, add_verify, add_farm,
                         add_completion, add_man, add_complete}) {
    Command& command = commands_.emplace_back(add(*program_));
    command.options->allow_extras();
  }
}

Table::~Table() = default;

int Table::parse_and_run(int argc, const char* const* argv) {
  try {
    program_->parse(argc, argv);
  } catch (const CLI::Success& help) {
    return program_->exit(help);
  } catch (const CLI::ParseError& error) {
    throw UsageError(parse_error_text(*program_, error));
  }
  const auto parsed = [](const Command& command) { return command.options->parsed(); };
  const auto command = std::find_if(commands_.begin(), commands_.end(), parsed);
  refuse_extras(deepest(*command->options));
  return command->run();
}

}  // namespace host::cli
