#include "host/cli/cli.h"

#include <qv/version.h>

#include "host/base/suggest.h"
#include "host/cli/commands.h"
#include "host/frame/targets.h"
#include "host/programs/shader_library.h"
#include "host/report/printable.h"
#include "host/shot/composition.h"
#include "host/shot/frames.h"

#include <charconv>
#include <cmath>
#include <exception>
#include <iostream>
#include <map>
#include <new>
#include <string>
#include <system_error>
#include <vector>

#include <CLI/CLI.hpp>
#include <unistd.h>

namespace host::cli {
namespace {

constexpr const char* exit_codes =
    "Exit codes:\n"
    "  0    every frame stands: written, or there already with --skip-existing\n"
    "  1    some frames failed or were seen to fail beforehand, images differ, or results could not be "
    "printed\n"
    "  2    wrong usage, or a composition with errors\n"
    "  3    no frame to render\n"
    "  4    out of memory, or an image is larger than --memory\n"
    "  5    no usable OpenGL\n"
    "  130  interrupted; files are whole or not there\n";

// "4G", "512M", "1.5GiB", "1000000": bytes, the letters standing for powers of 1024.
uint64_t parse_bytes(const std::string& text) {
  const auto refuse = [&text]() -> uint64_t {
    throw CLI::ValidationError("--memory", "expected a size such as 4G or 512M, found \"" + text + "\"");
  };
  double amount = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), amount);
  if (error != std::errc()) return refuse();
  const std::string unit(end, text.data() + text.size());
  static const std::map<std::string, int> powers = {
      {"", 0},    {"B", 0}, {"k", 1},  {"K", 1},   {"KB", 1}, {"KiB", 1}, {"M", 2},  {"MB", 2},
      {"MiB", 2}, {"G", 3}, {"GB", 3}, {"GiB", 3}, {"T", 4},  {"TB", 4},  {"TiB", 4}};
  const auto power = powers.find(unit);
  if (power == powers.end()) return refuse();
  const double bytes = amount * std::pow(1024.0, power->second);
  if (!(bytes >= 1) || bytes > 1e18) return refuse();
  return static_cast<uint64_t>(bytes);
}

double parse_scale(const std::string& text) {
  double scale = 0;
  const char* end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, scale);
  if (parsed.ec != std::errc() || parsed.ptr != end || !(scale > 0 && scale <= 1)) {
    throw CLI::ValidationError("--proxy", "expected a number above 0 and at most 1, found \"" + text + "\"");
  }
  return scale;
}

report::ProgressStyle parse_progress(const std::string& text) {
  using Style = report::ProgressStyle;
  static const std::map<std::string, Style> styles = {
      {"auto", Style::automatic}, {"plain", Style::plain}, {"jsonl", Style::jsonl}, {"none", Style::none}};
  const auto style = styles.find(text);
  if (style == styles.end()) {
    throw CLI::ValidationError(
        "--progress", "expected one of \"auto\", \"plain\", \"jsonl\", \"none\", found \"" + text + "\"" +
                          did_you_mean(text, {"auto", "plain", "jsonl", "none"}));
  }
  return style->second;
}

// A report of a fault should say which image library was at work.
std::string version_text() {
  return std::string("quorvel ") + qv::core_version() + "\nOpenImageIO " + qv::oiio_runtime_version() +
         ", built with " + qv::oiio_header_version();
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

// The commands with the variables that their options fill in.
struct CommandLine {
  CLI::App app{"Renders compositions of image nodes to files.", "quorvel"};
  RenderCommand render;
  InfoCommand info;
  NodesCommand nodes;
  CompareCommand compare;
  CLI::App* render_app = nullptr;
  CLI::App* info_app = nullptr;
  CLI::App* nodes_app = nullptr;
  CLI::App* compare_app = nullptr;

  CommandLine() {
    app.set_version_flag("--version", version_text());
    app.require_subcommand(1);
    app.formatter(std::make_shared<HelpFormatter>());
    app.footer(std::string("Each command has a --help of its own.\n\n") + exit_codes);
    add_render();
    add_info();
    add_nodes();
    add_compare();
    // Left over arguments are reported with a suggestion, which the parser would not give.
    app.allow_extras();
    for (CLI::App* command : {render_app, info_app, nodes_app, compare_app}) command->allow_extras();
  }

 private:
  void add_render() {
    render_app = app.add_subcommand("render", "Renders frames of a composition to files.");
    CLI::App& command = *render_app;
    command.footer(exit_codes);
    render::RenderOptions& options = render.options;
    command.add_option("composition", render.file, "Composition, a JSON file")->type_name("FILE")->required();
    command
        .add_option("-f,--frames", render.frames,
                    "Frames: 7  1-10  1-100x10 (every tenth)  3,7,9  -5--1  ^5 (leave out)")
        ->type_name("LIST");
    command
        .add_option("-o,--output", options.output,
                    "Path of the output, in place of the composition's; #### or %04d is the frame")
        ->type_name("PATH");
    command.add_flag(
        "--overwrite", [&](int64_t) { options.existing = frame::Existing::overwrite; },
        "Replace files that are there already");
    command
        .add_flag(
            "--skip-existing", [&](int64_t) { options.existing = frame::Existing::skip; },
            "Leave frames alone whose files are there already")
        ->excludes("--overwrite");
    command.add_flag("--keep-going", options.keep_going, "Go on after a frame that failed");
    command.add_flag("--dry-run", render.dry_run,
                     "Print what would be computed, read and written, and what is missing");
    command
        .add_option(
            "--proxy",
            [&](const CLI::results_t& given) {
              options.scale = parse_scale(given.at(0));
              return true;
            },
            "Render at this scale, above 0 and at most 1")
        ->type_name("SCALE");
    command
        .add_option("--threads", options.threads,
                    "Threads that decode and encode, and as many that draw in software; 0: one a processor")
        ->type_name("N")
        ->check(CLI::Range(0, 1024).description(""));
    command
        .add_option(
            "--memory",
            [&](const CLI::results_t& given) {
              options.memory = parse_bytes(given.at(0));
              return true;
            },
            "Memory for images, on the device, decoded and on their way to files, such as 512M or 4G "
            "(default 2G); beside it stand what one node works on, and the program itself")
        ->type_name("BYTES");
    command.add_option("--gpu", render.gpu, "Device: auto (the default), software, or its number")
        ->type_name("DEVICE");
    command
        .add_option(
            "--progress",
            [&](const CLI::results_t& given) {
              render.progress = parse_progress(given.at(0));
              return true;
            },
            "auto (a bar on a terminal), plain, jsonl (events on standard output), none (what is wrong "
            "alone)")
        ->type_name("STYLE");
    command.add_flag("--stats{-}", render.stats,
                     "Say where time and memory went; --stats=FILE writes it as JSON");
  }

  void add_info() {
    info_app = app.add_subcommand("info", "Says what a composition is made of, and which files it lacks.");
    info_app->add_option("composition", info.file, "Composition, a JSON file")->type_name("FILE")->required();
    info_app->add_flag("--dot", info.dot, "Print the graph for Graphviz instead");
  }

  void add_nodes() {
    nodes_app = app.add_subcommand("nodes", "Lists node types, or one type's inputs and knobs.");
    nodes_app->add_option("type", nodes.type, "Node type")->type_name("NAME");
    nodes_app->add_flag("--schema", nodes.schema, "Print the JSON schema of compositions instead");
  }

  void add_compare() {
    compare_app =
        app.add_subcommand("compare", "Says where two images or sequences differ, channel by channel.");
    CLI::App& command = *compare_app;
    command.add_option("first", compare.first, "Image; #### or %04d is the frame")
        ->type_name("A")
        ->required();
    command.add_option("second", compare.second, "What to compare it with")->type_name("B")->required();
    command.add_option("-f,--frames", compare.frames, "Frames, as for render; without it those on disk")
        ->type_name("LIST");
    command.add_option("--tolerance", compare.tolerance, "How far values may lie apart (default 0)")
        ->type_name("VALUE")
        ->check(CLI::NonNegativeNumber.description(""));
    command.add_option("--picture", compare.picture, "Write the magnitude of the difference as an image")
        ->type_name("PATH");
  }
};

// The first argument that no command understood, with what may have been meant.
void refuse_extras(const CLI::App& command) {
  const std::vector<std::string> extras = command.remaining();
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

int dispatch(const CommandLine& line) {
  if (line.render_app->parsed()) {
    refuse_extras(*line.render_app);
    return render_frames(line.render);
  }
  if (line.info_app->parsed()) {
    refuse_extras(*line.info_app);
    return print_info(line.info);
  }
  if (line.compare_app->parsed()) {
    refuse_extras(*line.compare_app);
    return compare(line.compare);
  }
  refuse_extras(*line.nodes_app);
  return print_nodes(line.nodes);
}

int complain(const std::string& text, int code) {
  std::cerr << "quorvel: " << text << '\n';
  return code;
}

// A command that is no command is worth a suggestion as well.
std::string parse_error_text(const CommandLine& line, const CLI::ParseError& error) {
  const std::vector<std::string> extras = line.app.remaining();
  if (dynamic_cast<const CLI::RequiredError*>(&error) && line.app.get_subcommands().empty()) {
    if (extras.empty()) return "expected a command: render, info, nodes or compare; see quorvel --help";
    return "unknown command \"" + extras.front() + "\"" +
           did_you_mean(extras.front(), {"render", "info", "nodes", "compare"});
  }
  return std::string(error.what()) + "; see --help";
}

int parse_and_run(int argc, char** argv) {
  CommandLine line;
  try {
    line.app.parse(argc, argv);
    return dispatch(line);
  } catch (const CLI::Success& help) {
    return line.app.exit(help);
  } catch (const CLI::ParseError& error) {
    return complain(parse_error_text(line, error), exit_usage);
  }
}

// Results that did not arrive were not printed, whatever was done for them.
int check_results(int code) {
  if (std::cout.flush() || code != exit_done) return code;
  return complain("standard output cannot be written to", exit_some_failed);
}

}  // namespace

int run(int argc, char** argv) {
  const report::TerminalGuard out(std::cout, STDOUT_FILENO);
  const report::TerminalGuard err(std::cerr, STDERR_FILENO);
  try {
    return check_results(parse_and_run(argc, argv));
  } catch (const shot::CompositionError& error) {
    std::cerr << error.what() << '\n';
    return exit_usage;
  } catch (const shot::FramesError& error) {
    return complain(std::string("--frames: ") + error.what(), exit_usage);
  } catch (const frame::TargetError& error) {
    return complain(error.what(), exit_usage);
  } catch (const std::invalid_argument& error) {
    return complain(error.what(), exit_usage);
  } catch (const UsageError& error) {
    return complain(error.what(), exit_usage);
  } catch (const gpu::NoGpu& error) {
    return complain(error.what(), exit_no_gl);
  } catch (const programs::ShaderError& error) {
    return complain(error.what(), exit_no_gl);
  } catch (const std::bad_alloc&) {
    return complain("out of memory", exit_memory);
  } catch (const std::system_error& error) {
    const bool threads = error.code() == std::errc::resource_unavailable_try_again;
    return threads ? complain("out of memory or threads (see ulimit -v and -u)", exit_memory)
                   : complain(error.what(), exit_some_failed);
  } catch (const std::exception& error) {
    return complain(error.what(), exit_some_failed);
  }
}

}  // namespace host::cli
