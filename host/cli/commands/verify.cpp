#include "host/render_farm/verify.h"

#include "host/cli/cli.h"
#include "host/cli/options.h"
#include "host/cli/table.h"
#include "host/shot/composition.h"

#include <iostream>
#include <memory>
#include <vector>

#include <CLI/CLI.hpp>

namespace host::cli {
namespace {

struct VerifyCommand {
  RenderCommand render;
  bool json = false;
};

int verify(const VerifyCommand& given) {
  const shot::Composition composition = given.render.shot.read();
  const std::vector<int64_t> frames = frames_to_render(composition, given.render.frames);
  if (frames.empty()) {
    std::cerr << "quorvel: --frames: " << given.render.frames << " leaves no frame to look at\n";
    return exit_nothing;
  }
  const render::RenderOptions& options = given.render.options;
  const render_farm::Verdict verdict =
      render_farm::verify(composition, frames, options.outputs, options.scale, options.threads);
  std::cout << (given.json ? render_farm::verdict_json(verdict) : render_farm::verdict_text(verdict));
  return verdict.flaws.empty() ? exit_done : exit_some_failed;
}

}  // namespace

Command add_verify(CLI::App& program) {
  CLI::App* const options = program.add_subcommand(
      "verify",
      "Says whether every frame's file is there, decodes, and was made from what its composition "
      "and inputs are now.");
  const auto given = std::make_shared<VerifyCommand>();
  add_composition(*options, given->render.shot);
  add_target_options(*options, given->render);
  add_threads(*options, given->render.options.threads,
              "Files that are decoded at a time; 0: one a processor");
  options->add_flag("--json", given->json, "Print it as JSON");
  return {options, [given] { return verify(*given); }};
}

}  // namespace host::cli
