#include "host/base/suggest.h"
#include "host/cli/cli.h"
#include "host/cli/options.h"
#include "host/cli/table.h"
#include "host/frame/plan.h"
#include "host/gpu/gpu_context.h"
#include "host/nodes/catalogue.h"
#include "host/report/describe.h"
#include "host/report/info.h"
#include "host/shot/composition.h"
#include "host/shot/schema.h"

#include <algorithm>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

// The commands that tell and render nothing.

namespace host::cli {
namespace {

struct InfoCommand {
  ShotChoice shot;
  bool dot = false;
};

struct NodesCommand {
  std::string type;  // "" for all
  bool schema = false;
};

bool writes_everything(const shot::Composition& composition) {
  return composition.quick_look ||
         std::all_of(composition.outputs.begin(), composition.outputs.end(), [&](int output) {
           return composition.nodes[static_cast<size_t>(output)].type->writes_files;
         });
}

// For a composition that may be rendered elsewhere: what this machine's device takes, if it has one.
int side_of_any_device() {
  try {
    return gpu::GpuContext::open({}).max_texture_size();
  } catch (const gpu::NoGpu&) {
    return 0;
  }
}

int print_info(const InfoCommand& command) {
  const shot::Composition composition = command.shot.read();
  if (command.dot) {
    std::cout << report::graphviz(composition);
    return exit_done;
  }
  // Files that stand are no fault of a composition.
  frame::Planner planner(composition, {1, {}, frame::Existing::overwrite, side_of_any_device, {}});
  int code = exit_done;
  std::vector<std::string> problems;
  try {
    if (writes_everything(composition)) planner.targets().check(composition.frames);
    problems = planner.look_ahead(composition.frames, {}).problems;
    if (!problems.empty()) code = exit_some_failed;
  } catch (const frame::TargetError& error) {
    problems = {error.what()};
    code = exit_usage;
  }
  std::cout << report::info_text(composition, planner, problems);
  return code;
}

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

Command add_info(CLI::App& program) {
  CLI::App* const options =
      program.add_subcommand("info", "Says what a composition is made of, and which files it lacks.");
  const auto given = std::make_shared<InfoCommand>();
  add_composition(*options, given->shot);
  options->add_flag("--dot", given->dot, "Print the graph for Graphviz instead");
  return {options, [given] { return print_info(*given); }};
}

Command add_nodes(CLI::App& program) {
  CLI::App* const options =
      program.add_subcommand("nodes", "Lists node types, or one type's inputs and knobs.");
  const auto given = std::make_shared<NodesCommand>();
  options->add_option("type", given->type, "Node type")->type_name("TYPE");
  options->add_flag("--schema", given->schema, "Print the JSON schema of compositions instead");
  return {options, [given] { return print_nodes(*given); }};
}

}  // namespace host::cli
