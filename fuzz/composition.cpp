#include "host/shot/composition.h"

#include "host/files/pattern.h"
#include "host/nodes/catalogue.h"
#include "host/plan/plan.h"
#include "host/report/info.h"
#include "tests/support/files.h"
#include "tests/support/images.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

// Any text as a composition: it is refused with lines that name the file, or else checked and planned for
// some frames, without a GPU. Planned twice it is the same, a frame that fails says why, and nothing but the
// documented errors comes out. The plates of the examples are there, and a hole.

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

constexpr size_t most_frames = 3;

void require(bool holds) {
  if (!holds) std::abort();
}

void write_plate(const fs::path& file) {
  support::write_image(file, OIIO::ImageSpec(4, 3, 4, OIIO::TypeHalf), std::vector<float>(48, 0.5F));
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

void plan(const host::shot::Composition& composition, double scale) {
  host::plan::PlanOptions options;
  options.scale = scale;
  options.existing = host::plan::Existing::overwrite;
  host::plan::Planner planner(composition, options);
  std::vector<std::string> texts;
  const auto note = [&texts](const host::plan::FramePlan& each) {
    texts.push_back(host::report::plan_text(each));
  };
  host::plan::Outlook outlook;
  try {
    planner.targets().check(composition.frames);
    outlook = planner.look_ahead(composition.frames, note);
  } catch (const host::plan::TargetError&) {
    return;
  }
  require((outlook.failing > 0) == !outlook.problems.empty());
  require(!host::report::info_text(composition, planner, outlook.problems).empty());
  host::plan::Planner again(composition, options);
  for (size_t i = 0; i < texts.size(); ++i)
    require(host::report::plan_text(again.frame(composition.frames[i])) == texts[i]);
}

double any_number(std::mt19937& random) {
  constexpr std::array odd = {0.0, -1.0, 0.5, 1.0, 2.0, 24.0, 1e9, -1e18, 1e300, 1e-300};
  return odd[random() % odd.size()];
}

json any_component(const host::node::KnobSpec& spec, std::mt19937& random) {
  using host::node::KnobKind;
  if (spec.kind == KnobKind::flag) return random() % 2 == 1;
  const double value = std::clamp(any_number(random), spec.minimum, spec.maximum);
  if (spec.kind == KnobKind::integer) return static_cast<int64_t>(std::clamp(value, -1e9, 1e9));
  if (random() % 4 > 0) return value;
  return {{"keys", {{any_number(random), value}, {1e7, value, "smooth"}}}};
}

// Mostly of the knob's kind and within its range.
json any_value(const host::node::KnobSpec& spec, std::mt19937& random) {
  using host::node::KnobKind;
  if (random() % 16 == 0) return any_number(random);
  if (spec.kind == KnobKind::choice) return spec.choices[random() % spec.choices.size()];
  if (spec.kind == KnobKind::file) {
    constexpr std::array paths = {"plates/greenscreen.####.exr", "plates/title.exr", "o.%d.png",
                                  "$HOME/o.####.exr"};
    return paths[random() % paths.size()];
  }
  if (spec.defaults.empty()) return random() % 2 == 0 ? spec.default_text : "rgba.red";
  if (spec.length() == 1 || random() % 2 == 0) return any_component(spec, random);
  json list = json::array();
  for (int i = 0; i < spec.length(); ++i) list.push_back(any_component(spec, random));
  return list;
}

// Another type, with all inputs that it has, or another knob for some node; other frames.
void change(json& root, std::mt19937& random) {
  if (random() % 8 == 0) root["frames"] = random() % 2 == 0 ? "1-3" : "^1,-2-2x2";
  json& nodes = root.at("nodes");
  const size_t at = random() % nodes.size();
  json& node = nodes.at(at);
  const auto& types = host::nodes::catalogue();
  const bool another = random() % 3 == 0;
  if (another) node["type"] = types[random() % types.size()].name;
  const host::node::NodeType* type = host::nodes::find_type(node.at("type").get<std::string>());
  if (!type) return;
  if (another) {
    node["knobs"] = json::object();
    node["inputs"] = json::object();
    for (const host::node::InputSpec& input : type->inputs) {
      if (at > 0) node["inputs"][input.name] = nodes.at(random() % at).at("name");
    }
  }
  for (const host::node::KnobSpec& spec : type->knobs) {
    const bool needed = another && spec.kind == host::node::KnobKind::file;
    if (needed || random() % type->knobs.size() == 0) node["knobs"][spec.name] = any_value(spec, random);
  }
  if (random() % 16 == 0) node["disabled"] = true;
}

}  // namespace

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t most);

// One change in eight is to the text, the others are to what it says.
extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t most, unsigned seed) {
  std::mt19937 random(seed);
  if (random() % 8 == 0) return LLVMFuzzerMutate(data, size, most);
  try {
    json root = json::parse(data, data + size, nullptr, true, true);
    change(root, random);
    const std::string text = root.dump(-1, ' ', false, json::error_handler_t::replace);
    if (text.size() > most) return LLVMFuzzerMutate(data, size, most);
    std::copy(text.begin(), text.end(), data);
    return text.size();
  } catch (const json::exception&) {
    return LLVMFuzzerMutate(data, size, most);
  }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto composition = parsed({reinterpret_cast<const char*>(data), size});
  if (!composition) return 0;
  composition->frames.resize(std::min(composition->frames.size(), most_frames));
  require(!host::report::graphviz(*composition).empty());
  plan(*composition, size % 2 == 0 ? 1 : 0.5);
  return 0;
}
