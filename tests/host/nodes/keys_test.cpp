#include "host/frame/keyed_frame.h"
#include "host/frame/project.h"
#include "host/node/identity.h"
#include "host/nodes/catalogue.h"
#include "tests/host/render/scene.h"
#include "tests/support/error.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <set>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using host::node::KnobKind;
using host::node::KnobSpec;
using host::node::NodeType;
using nlohmann::json;

constexpr int width = 12;
constexpr int height = 8;
constexpr int64_t frame = 5;

// Two nodes of a type: equal but for one knob, or one key of a knob's curve.
struct Pair {
  std::string what;
  json a, b;
};

// What a knob of text may say; a copy's, a merge's and a shuffle's channels, and a colour's spaces.
json random_text(const KnobSpec& spec, std::mt19937& random) {
  if (spec.name == "in" || spec.name == "out") return random() % 2 ? "srgb" : "linear";
  if (spec.name == "routing") return random() % 2 ? "1 a 0 0 r 0 0" : "2 r 1 0 g 0 0 white 0 0 a 0 0";
  if (spec.default_text.empty()) return "";
  return random() % 2 ? "rgba.alpha" : "rgba.red";
}

double random_number(const KnobSpec& spec, size_t component, std::mt19937& random) {
  const double step = std::uniform_real_distribution<double>(-3, 3)(random);
  const double value = std::clamp(spec.defaults[component] + step, spec.minimum, spec.maximum);
  return spec.kind == KnobKind::integer ? std::round(value) : value;
}

bool is_numeric(const KnobSpec& spec) {
  return spec.kind == KnobKind::number || spec.kind == KnobKind::integer || spec.kind == KnobKind::flag;
}

json random_value(const KnobSpec& spec, std::mt19937& random) {
  if (spec.kind == KnobKind::choice) return spec.choices[random() % spec.choices.size()];
  if (spec.kind == KnobKind::file) return "";
  if (spec.kind == KnobKind::object) return {{"take", random()}};
  if (!is_numeric(spec)) return random_text(spec, random);
  if (spec.kind == KnobKind::flag) return random() % 2 == 1;
  json list;
  for (size_t i = 0; i < spec.defaults.size(); ++i) list.push_back(random_number(spec, i, random));
  return spec.length() == 1 ? list[0] : list;
}

// Five keys around the frame, one of them on it, of every kind in turn.
json random_curve(const KnobSpec& spec, size_t component, std::mt19937& random) {
  json keys;
  for (int i = -2; i <= 2; ++i) {
    const double value = spec.kind == KnobKind::flag ? static_cast<double>(random() % 2)
                                                     : random_number(spec, component, random);
    const std::string& kind = host::shot::interpolation_names()[random() % 7];
    json key = {frame + i, value, kind};
    if (kind == "slopes") key.insert(key.end(), {0.5, -0.25});
    keys.push_back(key);
  }
  return {{"keys", keys}};
}

// The knobs with one key of a curve changed: not that of the frame, so that the knob says the same there.
json with_other_key(json knobs, const KnobSpec& spec, size_t component, std::mt19937& random) {
  json& curve = spec.length() == 1 ? knobs[spec.name] : knobs[spec.name][component];
  json& key = curve["keys"][random() % 2 ? 1 : 3];
  const double before = key[1];
  while (key[1] == before) {
    key[1] = spec.minimum == 0 && spec.maximum == 1 ? 1 - before : random_number(spec, component, random);
    if (spec.minimum == spec.maximum) break;
  }
  return knobs;
}

std::vector<Pair> pairs_of(const NodeType& type, std::mt19937& random) {
  std::vector<Pair> pairs;
  for (const KnobSpec& spec : type.knobs) {
    json knobs;
    for (const KnobSpec& each : type.knobs) knobs[each.name] = random_value(each, random);
    if (type.name == "read") knobs["file"] = "keys.exr";
    if (type.name == "ocio_file") knobs["file"] = "keys.cc";
    json other = knobs;
    for (int i = 0; i < 20 && other == knobs; ++i) other[spec.name] = random_value(spec, random);
    if (other != knobs && spec.kind != KnobKind::file) pairs.push_back({spec.name, knobs, other});
    if (!is_numeric(spec)) continue;
    if (type.family == "transform" && knobs.contains("motion_blur")) {
      knobs["motion_blur"] = 1.5;
      knobs["shutter"] = 3;
    }
    const size_t component = random() % spec.defaults.size();
    (spec.length() == 1 ? knobs[spec.name] : knobs[spec.name][component]) =
        random_curve(spec, component, random);
    pairs.push_back({spec.name + ", a key", knobs, with_other_key(knobs, spec, component, random)});
  }
  return pairs;
}

// A node with inputs of its own, which are equal pixels under other names: no two nodes share a result.
std::string node_text(const NodeType& type, const std::string& name, const json& knobs,
                      const std::string& plate) {
  json inputs = json::array();
  std::string text;
  for (const host::node::InputSpec& input : type.inputs) {
    inputs.push_back(name + " " + input.name);
    text += scene::read_plate(plate, inputs.back());
  }
  const std::string inside = knobs.dump();
  return text + scene::node(name, inputs.dump(), type.name, inside.substr(1, inside.size() - 2));
}

// The keys of each pair's nodes, one behind the other.
std::vector<int64_t> keys_of(const NodeType& type, const std::vector<Pair>& pairs) {
  std::string text;
  for (size_t i = 0; i < 2 * pairs.size(); ++i) {
    const Pair& pair = pairs[i / 2];
    text += node_text(type, "n" + std::to_string(i), i % 2 ? pair.b : pair.a, "keys.exr");
  }
  const scene::Scene shot(text, width, height);
  host::plates::Headers headers;
  const auto project = host::frame::make_project(shot.composition(), 1, headers);
  std::vector<int64_t> keys;
  for (size_t i = 0; i < 2 * pairs.size(); ++i) {
    host::frame::FrameKeys frame_keys(shot.composition(), project);
    const auto keyed = frame_keys.frame({shot.composition().find("n" + std::to_string(i))}, frame);
    keys.push_back(keyed.keys[static_cast<size_t>(keyed.graph.outputs[0])]);
  }
  return keys;
}

std::string drawn(scene::Scene& shot, const std::string& name, scene::HostImage& image) {
  const std::string error =
      support::error_of<host::frame::FrameError>([&] { image = shot.image(name, frame); });
  return error.substr(std::min(error.size(), error.find("frame 5")));
}

// Where a pair has one key, its pixels are drawn apart and must be one as well.
void compare(const NodeType& type, const Pair& pair) {
  scene::Scene shot(node_text(type, "a", pair.a, "keys.exr") + node_text(type, "b", pair.b, "copy.exr"),
                    width, height);
  scene::HostImage a, b;
  ASSERT_EQ(drawn(shot, "a", a), drawn(shot, "b", b)) << type.name << ": " << pair.what;
  EXPECT_EQ(a.extent.window, b.extent.window) << type.name << ": " << pair.what << " " << pair.a << pair.b;
  EXPECT_EQ(a.rgba, b.rgba) << type.name << ": " << pair.what << "\n" << pair.a << "\n" << pair.b;
}

// Change any knob of any node, or any key of its curve: the key changes, or the pixels do not.
TEST(Keys, CoverAllThatPixelsDependOn) {
  std::mt19937 random(3);
  const scene::Plate plate = scene::noise(random, width, height);
  for (const char* file : {"keys.exr", "copy.exr"}) scene::write_plate(file, plate);
  std::ofstream(scene::folder() / "keys.cc") << R"(<ColorCorrection id="k"><SOPNode><Slope>2 1 1</Slope>
      <Offset>0 0 0</Offset><Power>1 1 1</Power></SOPNode></ColorCorrection>)";
  for (const NodeType& type : host::nodes::catalogue()) {
    const std::vector<Pair> pairs = pairs_of(type, random);
    const std::vector<int64_t> keys = keys_of(type, pairs);
    for (size_t i = 0; i < pairs.size(); ++i) {
      if (keys[2 * i] == keys[2 * i + 1]) compare(type, pairs[i]);
    }
  }
}

// Texts side by side that read alike, and numbers that look like one another.
TEST(Keys, KeepValuesApart) {
  const std::vector<std::vector<std::string>> texts = {{"abcdefgh"},         {"abcd", "efgh"},
                                                       {"abcdefgh", ""},     {"", "abcdefgh"},
                                                       {"abcd", "efgh", ""}, {"abc", "defgh"}};
  std::set<int64_t> keys;
  for (const auto& list : texts) {
    host::node::Identity identity;
    for (const std::string& text : list) identity.add(std::string_view(text));
    keys.insert(identity.key());
  }
  EXPECT_EQ(keys.size(), texts.size());
}

// A curve's key may have five parts, and arrives and leaves as they say: with 4 in and -2 out over one
// frame, half way before it stands 1/2 - 4/8, half way behind it 1/2 - 2/8.
TEST(Keys, OfCurvesHaveUpToFiveParts) {
  scene::Scene shot(R"({"name": "n", "type": "constant", "knobs": {"color":
      [{"keys": [[2, 0, "slopes", 0, 0], [4, 1, "slopes", 2, -1], [6, 0, "slopes", 0, 0]]}, 0, 0, 1]}})");
  EXPECT_NEAR(scene::pixel(shot.image("n", 3), 0, 0)[0], 0.5 - 2 * 2 / 8.0, 1e-6);
  EXPECT_NEAR(scene::pixel(shot.image("n", 5), 0, 0)[0], 0.5 - 2 * 1 / 8.0, 1e-6);
}

// Where an author asks for a knob that is not declared, that is said, and not taken for a strange place.
TEST(Transforms, DoNotHideFaultsOfTheirAuthor) {
  NodeType type = *host::nodes::find_type("transform");
  type.knobs.erase(std::find_if(type.knobs.begin(), type.knobs.end(),
                                [](const KnobSpec& spec) { return spec.name == "filter"; }));
  host::node::Node node;
  node.type = &type;
  node.inputs.assign(type.inputs.size(), -1);
  node.inputs[0] = 0;
  for (const KnobSpec& spec : type.knobs) node.knobs.push_back(host::node::KnobValue::default_of(spec));
  const host::node::Project project;
  const std::vector<host::Extent> inputs = {{{4, 4, 1}, {0, 0, 4, 4}}};
  EXPECT_THROW(type.operation->extent(node.call_at(1, project), inputs), std::logic_error);
}

}  // namespace
