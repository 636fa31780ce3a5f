#include "host/manual/man_page.h"

#include <sstream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace host::manual {
namespace {

constexpr const char* description =
    "quorvel renders compositions of image nodes, JSON texts, to files, without a window. Files appear "
    "whole or not at all, and what keeps a frame from being rendered is said before the first is drawn. "
    "Results go to standard output, messages to standard error.";

constexpr const char* environment = R"(.SH ENVIRONMENT
.TP
.B HOME\fR, any other
Paths in compositions, and those of \fB\-o\fR, may hold ~, $NAME and ${NAME}.
.TP
.B XDG_CACHE_HOME
Where linked GPU programs are kept, under quorvel/programs; ~/.cache without it.
.TP
.B LP_NUM_THREADS
Threads of the software driver, in place of \fB\-\-threads\fR.
.TP
.B OCIO
The OpenColorIO configuration of nodes that name none.
)";

// Text that roff takes as it stands.
std::string plain(const std::string& text) {
  std::string safe;
  for (const char letter : text) {
    if (letter == '\\') {
      safe += "\\e";
    } else {
      if ((letter == '.' || letter == '\'') && (safe.empty() || safe.back() == '\n')) safe += "\\&";
      if (letter == '-') safe += '\\';
      safe += letter;
    }
  }
  return safe;
}

std::string names_of(const CLI::Option& option) {
  std::string names;
  for (const std::string& name : option.get_snames()) names += (names.empty() ? "-" : ", -") + name;
  for (const std::string& name : option.get_lnames()) names += (names.empty() ? "--" : ", --") + name;
  return names;
}

bool takes_value(const CLI::Option& option) {
  return option.get_items_expected_max() > 0;
}

std::string option_text(const CLI::Option& option) {
  std::string head = option.get_positional() ? "\\fI" + plain(option.get_name()) + "\\fR"
                                             : "\\fB" + plain(names_of(option)) + "\\fR";
  if (!option.get_positional() && takes_value(option))
    head += " \\fI" + plain(option.get_type_name()) + "\\fR";
  return ".TP\n" + head + "\n" + plain(option.get_description()) + "\n";
}

std::vector<const CLI::App*> commands_of(const CLI::App& command) {
  return command.get_subcommands([](const CLI::App* each) { return !each->get_group().empty(); });
}

// Of a command and of those below it; `before` is what is typed before its name.
std::string command_text(const CLI::App& command, const std::string& before) {
  const std::string typed = before + " " + plain(command.get_name());
  std::string text = ".SS \"" + typed + "\"\n" + plain(command.get_description()) + "\n";
  for (const bool positional : {true, false}) {
    for (const CLI::Option* option : command.get_options()) {
      if (option->get_positional() == positional) text += option_text(*option);
    }
  }
  for (const CLI::App* below : commands_of(command)) text += command_text(*below, typed);
  return text;
}

std::string synopsis(const CLI::App& command, const std::string& before) {
  const std::string typed = before + " " + plain(command.get_name());
  std::string all;
  for (const CLI::App* below : commands_of(command)) all += synopsis(*below, typed);
  if (!all.empty()) return all;
  std::string line = ".br\n\\fB" + typed + "\\fR [\\fIoption\\fR ...]";
  for (const CLI::Option* option : command.get_options()) {
    if (!option->get_positional()) continue;
    const std::string name = "\\fI" + plain(option->get_name()) + "\\fR";
    line += option->get_required() ? " " + name : " [" + name + "]";
  }
  return line + "\n";
}

// The footer has a code and its meaning a line, behind a heading.
std::string exit_status(const std::string& footer) {
  std::string text = ".SH EXIT STATUS\n";
  std::istringstream lines(footer);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream words(line);
    int code = 0;
    std::string meaning;
    if (!line.starts_with("  ") || !(words >> code) || !std::getline(words >> std::ws, meaning)) continue;
    text += ".TP\n.B " + std::to_string(code) + "\n" + plain(meaning) + "\n";
  }
  return text;
}

}  // namespace

std::string man_page(const CLI::App& program, const std::string& version) {
  std::string commands, synopses;
  for (const CLI::App* command : commands_of(program)) {
    synopses += synopsis(*command, "quorvel");
    commands += command_text(*command, "quorvel");
  }
  return ".TH QUORVEL 1 \"\" \"quorvel " + version + "\" \"User Commands\"\n.SH NAME\nquorvel \\- " +
         plain(program.get_description()) + "\n.SH SYNOPSIS\n" + synopses + ".SH DESCRIPTION\n" +
         plain(description) + "\n.SH COMMANDS\n" + commands + exit_status(program.get_footer()) + environment;
}

}  // namespace host::manual
