#include "host/report/info.h"

#include "host/cli/cli.h"
#include "host/cli/options.h"
#include "host/cli/table.h"
#include "host/files/path.h"
#include "host/files/pattern.h"
#include "host/gpu/gpu_context.h"
#include "host/plan/plan.h"
#include "host/plates/headers.h"
#include "host/plates/sequence.h"
#include "host/report/image_info.h"
#include "host/shot/composition.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

namespace host::cli {
namespace {

namespace fs = std::filesystem;

struct InfoCommand {
  std::vector<std::string> files;
  shot::Asked asked;
  bool dot = false;
  bool json = false;
};

// What is told of one file: the text for people; as JSON it is added to a list.
struct Told {
  int code = exit_done;
  std::string text;
};
using Json = nlohmann::ordered_json;

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

Told tell_composition(const std::string& file, const InfoCommand& command, Json& all) {
  const shot::Composition composition = shot::read_composition(file, command.asked);
  if (command.dot) return {exit_done, report::graphviz(composition)};
  // Files that stand are no fault of a composition.
  plan::PlanOptions options;
  options.existing = plan::Existing::overwrite;
  options.largest_side = side_of_any_device;
  plan::Planner planner(composition, options);
  Told told;
  std::vector<std::string> problems;
  try {
    if (writes_everything(composition)) planner.targets().check(composition.frames);
    problems = planner.look_ahead(composition.frames, {}).problems;
    if (!problems.empty()) told.code = exit_some_failed;
  } catch (const plan::TargetError& error) {
    problems = {error.what()};
    told.code = exit_usage;
  }
  if (command.json) {
    all.push_back(report::info_json(composition, planner, problems));
  } else {
    told.text = report::info_text(composition, planner, problems);
  }
  return told;
}

Told tell_image(const std::string& name, const InfoCommand& command, Json& all) {
  report::AskedImage image;
  image.name = name;
  image.path = files::expanded(name);
  std::error_code ignored;
  if (files::has_frame(image.path) && !fs::exists(image.path, ignored)) {
    image.frames = plates::frames_on_disk(image.path);
    if (!image.frames.empty()) image.path = files::frame_path(image.path, image.frames.front());
  }
  plates::Headers headers;
  image.header = headers.get(image.path);
  const std::string& error = image.header->error;
  Told told{error.empty() ? exit_done : exit_usage, {}};
  if (command.json) {
    all.push_back(report::image_json(image));
  } else if (error.empty()) {
    told.text = report::image_text(image);
  } else {
    std::cerr << "quorvel: " << error << '\n';
  }
  return told;
}

// Whether a text begins as a composition does. No image file does: bytes that no text has follow.
bool begins_as_composition(const std::string& file) {
  std::array<char, 1024> head{};
  std::ifstream stream(file, std::ios::binary);
  stream.read(head.data(), head.size());
  std::string_view text(head.data(), static_cast<size_t>(stream.gcount()));
  const auto is_control = [](char byte) { return static_cast<unsigned char>(byte) < 0x20; };
  if (text.starts_with("\xef\xbb\xbf")) text.remove_prefix(3);
  constexpr std::string_view blanks = " \t\r\n";
  const size_t begin = text.find_first_not_of(blanks);
  if (begin == std::string_view::npos || std::string_view("{[/").find(text[begin]) == std::string_view::npos)
    return false;
  return std::none_of(text.begin(), text.end(), [&](char byte) {
    return is_control(byte) && blanks.find(byte) == std::string_view::npos;
  });
}

// What streams hold can be read once, so they are not looked into. What is neither is judged by its name.
bool is_composition(const std::string& file) {
  std::error_code error;
  if (file == "-" ||
      (fs::exists(file, error) && !fs::is_regular_file(file, error) && !fs::is_directory(file, error)))
    return true;
  if (begins_as_composition(file)) return true;
  if (fs::path(file).extension() != ".json") return false;
  plates::Headers headers;
  return !headers.get(file)->error.empty();
}

Told tell(const std::string& file, const InfoCommand& command, Json& all) {
  if (is_composition(file)) return tell_composition(file, command, all);
  if (command.dot) throw UsageError("--dot: " + file + " is no composition");
  return tell_image(file, command, all);
}

// Goes on behind a file with errors, which end with the code of the gravest.
int print_info(const InfoCommand& command) {
  int code = exit_done;
  Json all = Json::array();
  for (size_t i = 0; i < command.files.size(); ++i) {
    const std::string& file = command.files[i];
    Told told;
    try {
      told = tell(file, command, all);
    } catch (const shot::CompositionError& error) {
      told.code = exit_usage;
      all.push_back({{"file", file}, {"kind", "composition"}, {"error", error.what()}});
      if (!command.json) std::cerr << error.what() << '\n';
    }
    code = std::max(code, told.code);
    if (!told.text.empty()) std::cout << (i == 0 ? "" : "\n") << told.text;
  }
  // Names may hold bytes that are no UTF-8.
  if (command.json) {
    std::cout << all.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
  }
  return code;
}

}  // namespace

Command add_info(CLI::App& program) {
  CLI::App* const options = program.add_subcommand(
      "info", "Says what images hold, or what a composition is made of and which files it lacks.");
  const auto given = std::make_shared<InfoCommand>();
  options
      ->add_option("files", given->files,
                   "Compositions, images, and sequences, where #### or %04d is the frame")
      ->type_name("FILE")
      ->required();
  add_asked(*options, given->asked);
  options->add_flag("--json", given->json, "Print JSON instead, an object a file");
  options->add_flag("--dot", given->dot, "Print the graph of a composition for Graphviz instead")
      ->excludes("--json");
  return {options, [given] { return print_info(*given); }};
}

}  // namespace host::cli
