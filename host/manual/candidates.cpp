#include "host/manual/candidates.h"

#include "host/node/node.h"
#include "host/nodes/catalogue.h"
#include "host/shot/asked/outline.h"

#include <algorithm>
#include <map>
#include <sstream>
#include <utility>

#include <CLI/CLI.hpp>

namespace host::manual {
namespace {

using shot::asked::Outline;
using shot::asked::outline;

const CLI::App* find_command(const CLI::App& program, const std::string& name) {
  const auto named = [&name](const CLI::App* each) { return each->get_name() == name; };
  const std::vector<const CLI::App*> found = program.get_subcommands(named);
  return found.empty() ? nullptr : found.front();
}

const CLI::Option* find_option(const CLI::App& command, const std::string& word) {
  for (const CLI::Option* option : command.get_options()) {
    if (!word.empty() && word[0] == '-' && option->check_name(word)) return option;
  }
  return nullptr;
}

bool takes_value(const CLI::Option& option) {
  return option.get_items_expected_max() > 0;
}

// Completes one value; `front` stands before it in the same word.
class Values {
 public:
  Values(std::string front, std::string begun, const std::string& file, Candidates& found)
      : front_(std::move(front)), begun_(std::move(begun)), file_(file), found_(found) {}

  void add_of_type(const std::string& type) {
    const std::map<std::string, void (Values::*)()> makers = {
        {"NODE", &Values::add_nodes},  {"NODE.KNOB=VALUE", &Values::add_settings},
        {"VIEWS", &Values::add_views}, {"[NODE=]PATH", &Values::add_node_paths},
        {"TYPE", &Values::add_types},  {"FILE", &Values::add_files},
        {"PATH", &Values::add_files},  {"A", &Values::add_files},
        {"B", &Values::add_files},
    };
    if (type.find('|') != std::string::npos) add_choices(type);
    const auto maker = makers.find(type);
    if (maker != makers.end()) (this->*maker->second)();
  }

 private:
  void add(const std::string& text, const std::string& help) {
    if (text.starts_with(begun_)) found_.words.push_back({front_ + text, help});
  }

  void add_choices(const std::string& list) {
    std::istringstream words(list);
    for (std::string word; std::getline(words, word, '|');) add(word, "");
  }

  void add_files() {
    found_.files = true;
  }

  void add_types() {
    for (const node::NodeType& type : nodes::catalogue()) add(type.name, type.help);
  }

  void add_nodes() {
    for (const auto& [name, type] : outline(file_).nodes) add(name, type);
  }

  void add_node_paths() {
    found_.files = true;
    for (const auto& [name, type] : outline(file_).nodes) {
      const node::NodeType* const known = nodes::find_type(type);
      if (known && known->writes_files) add(name + "=", type);
    }
  }

  // Several with commas: those before the last stay.
  void add_views() {
    const size_t comma = begun_.rfind(',');
    const std::string before = comma == std::string::npos ? "" : begun_.substr(0, comma + 1);
    for (const std::string& view : outline(file_).views) add(before + view, "");
  }

  // A node first, then its knobs, then what the knob takes.
  void add_settings() {
    const Outline named = outline(file_);
    const size_t equals = begun_.find('=');
    for (const auto& [name, type] : named.nodes) {
      const node::NodeType* const known = nodes::find_type(type);
      const std::string front = name + ".";
      if (!known || !begun_.starts_with(front)) {
        add(front, type);
        continue;
      }
      for (const node::KnobSpec& spec : known->knobs) {
        const std::string knob = front + spec.name + "=";
        if (equals == std::string::npos) {
          add(knob, spec.help);
        } else if (begun_.starts_with(knob)) {
          add_knob_values(knob, spec);
        }
      }
    }
  }

  void add_knob_values(const std::string& front, const node::KnobSpec& spec) {
    for (const std::string& choice : spec.choices) add(front + choice, "");
    if (spec.kind == node::KnobKind::file) found_.files = true;
    if (spec.kind != node::KnobKind::flag) return;
    for (const char* const word : {"true", "false"}) add(front + word, "");
  }

  std::string front_, begun_;
  const std::string& file_;
  Candidates& found_;
};

void add_options(const CLI::App& command, const std::string& begun, Candidates& found) {
  for (const CLI::Option* option : command.get_options()) {
    for (const std::string& name : option->get_lnames()) {
      if (("--" + name).starts_with(begun)) found.words.push_back({"--" + name, option->get_description()});
    }
  }
}

// What stands behind a command, up to the word that is being typed.
struct Typed {
  std::vector<std::string> positionals;
  const CLI::Option* awaiting = nullptr;  // an option without its value so far
};

Typed read_words(const CLI::App& command, const std::vector<std::string>& words, size_t first) {
  Typed typed;
  for (size_t i = first; i + 1 < words.size(); ++i) {
    if (typed.awaiting) {
      typed.awaiting = nullptr;
    } else if (const CLI::Option* const option = find_option(command, words[i])) {
      if (takes_value(*option)) typed.awaiting = option;
    } else if (!words[i].starts_with("-")) {
      typed.positionals.push_back(words[i]);
    }
  }
  return typed;
}

void add_positional(const CLI::App& command, size_t position, Values values) {
  for (const CLI::Option* option : command.get_options()) {
    if (!option->get_positional()) continue;
    const bool takes_more = option->get_items_expected_max() > 1;
    if (position != 0 && !takes_more) {
      --position;
      continue;
    }
    values.add_of_type(option->get_type_name());
    return;
  }
}

// The command that the first words name, and how many they are.
std::pair<const CLI::App*, size_t> command_of(const CLI::App& program,
                                              const std::vector<std::string>& words) {
  std::pair<const CLI::App*, size_t> command(&program, 0);
  while (command.second + 1 < words.size()) {
    const CLI::App* const next = find_command(*command.first, words[command.second]);
    if (!next) break;
    command = {next, command.second + 1};
  }
  return command;
}

void add_commands(const CLI::App& command, const std::string& begun, Candidates& found) {
  if (begun.starts_with("-")) add_options(command, begun, found);
  for (const CLI::App* each : command.get_subcommands([](const CLI::App*) { return true; })) {
    const bool shown = !each->get_group().empty() && each->get_name().starts_with(begun);
    if (shown) found.words.push_back({each->get_name(), each->get_description()});
  }
}

// The last word, of a command that takes options and arguments.
void add_arguments(const CLI::App& command, const std::string& begun, const Typed& typed, Candidates& found) {
  const std::string file = typed.positionals.empty() ? "" : typed.positionals.front();
  const size_t equals = begun.find('=');
  if (typed.awaiting) {
    Values("", begun, file, found).add_of_type(typed.awaiting->get_type_name());
  } else if (begun.starts_with("--") && equals != std::string::npos) {
    const CLI::Option* const option = find_option(command, begun.substr(0, equals));
    Values values(begun.substr(0, equals + 1), begun.substr(equals + 1), file, found);
    if (option) values.add_of_type(option->get_type_name());
  } else if (begun.starts_with("-")) {
    add_options(command, begun, found);
  } else {
    add_positional(command, typed.positionals.size(), Values("", begun, file, found));
  }
}

}  // namespace

Candidates candidates(const CLI::App& program, const std::vector<std::string>& words) {
  Candidates found;
  if (words.empty()) return found;
  const auto [command, depth] = command_of(program, words);
  if (command->get_subcommands([](const CLI::App*) { return true; }).empty()) {
    add_arguments(*command, words.back(), read_words(*command, words, depth), found);
  } else if (words.size() == depth + 1) {
    add_commands(*command, words.back(), found);
  }
  return found;
}

std::string candidate_lines(const Candidates& found) {
  std::string text;
  for (const Candidate& each : found.words) text += each.text + "\t" + each.help + "\n";
  return text + (found.files ? ":files\n" : "");
}

}  // namespace host::manual
