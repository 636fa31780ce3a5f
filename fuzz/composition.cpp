#include "host/shot/composition.h"

#include "host/files/pattern.h"
#include "host/frame/plan.h"
#include "host/report/info.h"
#include "tests/support/files.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <OpenImageIO/imageio.h>

// Any text as a composition: it is refused with lines that name the file, or else checked and planned for
// some frames, without a GPU. Planned twice it is the same, a frame that fails says why, and nothing but the
// documented errors comes out. The plates of the examples are there, and a hole.

namespace {

namespace fs = std::filesystem;

constexpr size_t most_frames = 3;

void require(bool holds) {
  if (!holds) std::abort();
}

void write_plate(const fs::path& file) {
  const OIIO::ImageSpec spec(4, 3, 4, OIIO::TypeHalf);
  const std::vector<float> pixels(48, 0.5F);
  const auto output = OIIO::ImageOutput::create(file.string());
  require(output && output->open(file.string(), spec) &&
          output->write_image(OIIO::TypeFloat, pixels.data()) && output->close());
}

// Where compositions stand, with plates beside them and one folder up.
const fs::path& folder() {
  static const fs::path result = [] {
    const fs::path made = support::new_folder() / "in";
    fs::create_directories(made / "plates");
    fs::create_directory_symlink("in/plates", made.parent_path() / "plates");
    for (const char* name : {"background.exr", "title.exr"}) write_plate(made / "plates" / name);
    for (const int64_t frame : {1, 2, 4})
      write_plate(made / "plates" / host::files::frame_path("greenscreen.####.exr", frame));
    return made;
  }();
  return result;
}

std::optional<host::shot::Composition> parsed(std::string_view text) {
  const std::string file = (folder() / "shot.json").string();
  try {
    return host::shot::parse_composition(text, file);
  } catch (const host::shot::CompositionError& error) {
    require(std::string_view(error.what()).starts_with(file + ": "));
    return std::nullopt;
  }
}

host::frame::PlanOptions options(double scale) {
  host::frame::PlanOptions result;
  result.scale = scale;
  result.existing = host::frame::Existing::overwrite;
  return result;
}

void plan(const host::shot::Composition& composition, double scale) {
  host::frame::Planner planner(composition, options(scale));
  try {
    planner.targets().check(composition.frames);
  } catch (const host::frame::TargetError&) {
    return;
  }
  std::vector<std::string> texts;
  const auto note = [&texts](const host::frame::FramePlan& each) { texts.push_back(plan_text(each)); };
  std::vector<std::string> problems;
  try {
    const host::frame::Outlook outlook = planner.look_ahead(composition.frames, note);
    require((outlook.failing > 0) == !outlook.problems.empty());
    problems = outlook.problems;
  } catch (const host::frame::TargetError&) {
    return;
  }
  require(!info_text(composition, planner, problems).empty());
  host::frame::Planner again(composition, options(scale));
  for (size_t i = 0; i < texts.size(); ++i)
    require(plan_text(again.frame(composition.frames[i])) == texts[i]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto composition = parsed({reinterpret_cast<const char*>(data), size});
  if (!composition) return 0;
  composition->frames.resize(std::min(composition->frames.size(), most_frames));
  require(!host::report::graphviz(*composition).empty());
  plan(*composition, size % 2 == 0 ? 1 : 0.5);
  return 0;
}
