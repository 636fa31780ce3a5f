#include "host/cli/commands/farm_actions.h"
#include "host/cli/table.h"

#include <algorithm>
#include <charconv>
#include <functional>
#include <memory>
#include <system_error>
#include <utility>

#include <CLI/CLI.hpp>

namespace host::cli {
namespace {

int64_t parse_chunk(const std::string& text) {
  if (text == "auto") return 0;
  int64_t size = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, size);
  if (error != std::errc() || stop != end || size < 1)
    throw CLI::ValidationError("--chunk", "expected auto or a number of frames, found \"" + text + "\"");
  return size;
}

void add_chunk(CLI::App& command, FarmCommand& given) {
  add_parsed(command, "--chunk", "N",
             "Frames that one process renders; auto (the default): those of about ten minutes, by the "
             "journal's times or by three frames that are rendered here first",
             [&given](const std::string& text) { given.chunk = parse_chunk(text); });
}

// What decides on a job's scripts.
void add_job_options(CLI::App& command, FarmCommand& given) {
  add_target_options(command, given.render);
  add_machine_options(command, given.render);
  add_chunk(command, given);
  command.add_option("--retries", given.retries, "How often a chunk is put back into the queue (default 3)")
      ->type_name("N")
      ->check(CLI::Range(0, 100).description(""));
  command
      .add_option("--sbatch", given.extra,
                  "A further option for sbatch, as in --sbatch=--partition=night; again "
                  "for another")
      ->type_name("OPTION")
      ->allow_extra_args(false);
}

void add_wait(CLI::App& command, FarmCommand& given) {
  command.add_flag("--keep-going", given.render.options.keep_going,
                   "Submit although some frames cannot be rendered");
  command.add_flag("--wait", given.wait, "Wait for the end, and end with the code of the check");
}

struct Action {
  const char* name;
  const char* help;
  std::function<void(CLI::App&, FarmCommand&)> add_options;
  int (*run)(const FarmCommand&);
};

std::vector<Action> actions() {
  const auto output = [](CLI::App& command, FarmCommand& given) {
    command.add_option("-o,--output", given.render.options.outputs, "As it was for submit")
        ->type_name("[NODE=]PATH")
        ->allow_extra_args(false);
  };
  return {{"submit", "Submits frames to Slurm: an array job of chunks, and a job that verifies the frames.",
           [](CLI::App& command, FarmCommand& given) {
             add_job_options(command, given);
             add_wait(command, given);
           },
           submit},
          {"status", "Says how each chunk of the last submission stands.",
           [output](CLI::App& command, FarmCommand& given) {
             output(command, given);
             command.add_flag("--json", given.json, "Print it as JSON");
             command.add_flag("--watch", given.watch, "Print it again every two seconds until the end");
           },
           status},
          {"retry", "Submits again what is missing, stale or failed, and nothing else.",
           [output](CLI::App& command, FarmCommand& given) {
             output(command, given);
             add_chunk(command, given);
             add_wait(command, given);
           },
           retry},
          {"cancel", "Ends what was submitted; frames that stand stay.", output, cancel},
          {"export", "Prints what submit would hand over, for another farm.",
           [](CLI::App& command, FarmCommand& given) {
             add_job_options(command, given);
             command
                 .add_option("--format", given.format,
                             "sbatch (the default): a script for Slurm; openjd: a "
                             "template of Open Job Description")
                 ->type_name("sbatch|openjd")
                 ->check(CLI::IsMember({"sbatch", "openjd"}).description(""));
             command.add_flag("--yaml", given.yaml, "The template as YAML, not as JSON");
             command.add_flag("--task-chunking", given.task_chunking,
                              "Let the runner make chunks, by an extension that older ones refuse");
           },
           export_job}};
}

}  // namespace

Command add_farm(CLI::App& program) {
  CLI::App* const options =
      program.add_subcommand("farm", "Renders frames on many machines, through a scheduler that runs there.");
  options->require_subcommand(1);
  const auto given = std::make_shared<FarmCommand>();
  std::vector<std::pair<CLI::App*, int (*)(const FarmCommand&)>> runs;
  for (const Action& action : actions()) {
    CLI::App* const command = options->add_subcommand(action.name, action.help);
    command->allow_extras();
    add_composition(*command, given->render.shot);
    action.add_options(*command, *given);
    runs.emplace_back(command, action.run);
  }
  return {options, [given, runs] {
            const auto parsed = [](const auto& run) { return run.first->parsed(); };
            return std::find_if(runs.begin(), runs.end(), parsed)->second(*given);
          }};
}

}  // namespace host::cli
