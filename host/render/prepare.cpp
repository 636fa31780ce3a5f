#include "host/render/prepare.h"

#include "host/files/atomic_file.h"
#include "host/files/path.h"
#include "host/plan/targets.h"

#include <filesystem>
#include <set>

namespace host::render {
namespace {

void tidy_folders(const plan::Targets& targets, const std::vector<int64_t>& frames) {
  std::set<std::filesystem::path> folders;
  for (const int64_t frame : frames) {
    for (const plan::Target& target : targets.at(frame)) {
      folders.insert(files::followed(target.file.path).parent_path());
    }
  }
  for (const auto& folder : folders) files::remove_leftovers(folder);
}

}  // namespace

bool refused(const plan::Outlook& outlook, const RunOptions& options) {
  return outlook.failing > 0 && !options.keep_going;
}

plan::Outlook prepare(plan::Planner& planner, RunOptions& options) {
  const auto check = [&options](const plan::FramePlan& /*plan*/) {
    if (options.stop && *options.stop) throw frame::Interrupted();
  };
  plan::Outlook outlook = planner.look_ahead(options.frames, check);
  if (refused(outlook, options)) return outlook;
  options.stale = outlook.stale;
  options.kept = outlook.kept;
  tidy_folders(planner.targets(), options.frames);
  return outlook;
}

}  // namespace host::render
