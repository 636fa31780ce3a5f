#include "host/cli/cli.h"
#include "host/cli/options.h"
#include "host/cli/table.h"
#include "host/decode/difference.h"
#include "host/files/pattern.h"
#include "host/plates/headers.h"
#include "host/report/difference_text.h"
#include "host/shot/frames.h"
#include "host/writer/container.h"

#include <algorithm>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace host::cli {
namespace {

// Two image files, or two sequences.
struct CompareCommand {
  std::string first, second;
  std::string frames;  // as typed; "" for those on disk
  double tolerance = 0;
  std::string picture;  // a path for the picture of the difference, "" for none
};

// Those asked for, else from the first to the last that either sequence has; one for single files.
std::vector<int64_t> frames_to_compare(const CompareCommand& command) {
  if (!command.frames.empty()) return shot::parse_frames(command.frames);
  plates::Headers headers;
  int64_t first = 0;
  int64_t last = -1;
  for (const std::string& pattern : {command.first, command.second}) {
    if (!files::has_frame(pattern)) continue;
    const auto range = headers.frames_on_disk(pattern);
    if (!range) throw UsageError(pattern + ": no such file");
    first = last < first ? range->first : std::min(first, range->first);
    last = std::max(last, range->second);
  }
  if (last < first) return {0};
  std::vector<int64_t> frames;
  for (int64_t frame = first; frame <= last; ++frame) frames.push_back(frame);
  return frames;
}

void write_picture(const CompareCommand& command, int64_t frame, const decode::Difference& difference) {
  if (command.picture.empty() || !difference.picture) return;
  writer::ImageWriter writer(1, 1, [](const writer::WriteResult& result) {
    if (!result.error.empty()) std::cerr << "quorvel: " << result.error << '\n';
  });
  writer::WriteJob job;
  job.frame = frame;
  job.file.path = files::frame_path(command.picture, frame);
  job.file.overscan = true;
  job.extent = difference.extent;
  job.rgba = difference.picture;
  writer.put(std::move(job));
}

bool same_at(const CompareCommand& command, int64_t frame) {
  const std::string first = files::frame_path(command.first, frame);
  const std::string second = files::frame_path(command.second, frame);
  try {
    const decode::Difference difference =
        decode::difference(first, second, command.tolerance, !command.picture.empty());
    std::cout << report::difference_text(first, second, difference);
    write_picture(command, frame, difference);
    return difference.same();
  } catch (const std::runtime_error& error) {
    std::cerr << "quorvel: " << error.what() << '\n';
    return false;
  }
}

int compare(const CompareCommand& command) {
  const std::vector<int64_t> frames = frames_to_compare(command);
  if (!command.picture.empty()) {
    const std::string reason = writer::unsupported_reason(command.picture);
    if (!reason.empty()) throw UsageError("--picture: " + reason);
    if (frames.size() > 1 && !files::has_frame(command.picture)) {
      throw UsageError("--picture: " + command.picture +
                       ": every frame would go to this file; put #### into it");
    }
  }
  size_t differing = 0;
  for (const int64_t frame : frames) differing += same_at(command, frame) ? 0 : 1;
  if (frames.size() > 1) {
    std::cout << differing << " of " << frames.size() << " frames differ\n";
  }
  return differing == 0 ? exit_done : exit_some_failed;
}

}  // namespace

Command add_compare(CLI::App& program) {
  CLI::App* const options =
      program.add_subcommand("compare", "Says where two images or sequences differ, channel by channel.");
  const auto given = std::make_shared<CompareCommand>();
  options->add_option("first", given->first, "Image; #### or %04d is the frame")->type_name("A")->required();
  options->add_option("second", given->second, "What to compare it with")->type_name("B")->required();
  options->add_option("-f,--frames", given->frames, "Frames, as for render; without it those on disk")
      ->type_name("LIST");
  options->add_option("--tolerance", given->tolerance, "How far values may lie apart (default 0)")
      ->type_name("VALUE")
      ->check(CLI::NonNegativeNumber.description(""));
  options->add_option("--picture", given->picture, "Write the magnitude of the difference as an image")
      ->type_name("PATH");
  return {options, [given] { return compare(*given); }};
}

}  // namespace host::cli
