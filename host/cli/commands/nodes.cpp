#include "host/base/suggest.h"
#include "host/cli/cli.h"
#include "host/cli/options.h"
#include "host/cli/table.h"
#include "host/nodes/catalogue.h"
#include "host/report/describe.h"
#include "host/shot/schema.h"

#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

// The command that tells of node types.

namespace host::cli {
namespace {

struct NodesCommand {
  std::string type;  // "" for all
  bool schema = false;
};

int print_nodes(const NodesCommand& command) {
  if (command.schema) {
    std::cout << shot::composition_schema();
    return exit_done;
  }
  if (command.type.empty()) {
    std::cout << report::describe_catalogue();
    return exit_done;
  }
  const node::NodeType* type = nodes::find_type(command.type);
  if (!type) {
    std::vector<std::string> names;
    for (const node::NodeType& each : nodes::catalogue()) names.push_back(each.name);
    throw UsageError("unknown node type \"" + command.type + "\"" + did_you_mean(command.type, names));
  }
  std::cout << report::describe(*type);
  return exit_done;
}

}  // namespace

Command add_nodes(CLI::App& program) {
  CLI::App* const options =
      program.add_subcommand("nodes", "Lists node types, or one type's inputs and knobs.");
  const auto given = std::make_shared<NodesCommand>();
  options->add_option("type", given->type, "Node type")->type_name("TYPE");
  options->add_flag("--schema", given->schema, "Print the JSON schema of compositions instead");
  return {options, [given] { return print_nodes(*given); }};
}

}  // namespace host::cli
