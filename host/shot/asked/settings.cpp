#include "host/shot/asked/settings.h"

#include "host/base/suggest.h"
#include "host/nodes/catalogue.h"

#include <algorithm>
#include <cstddef>
#include <optional>

namespace host::shot::asked {
namespace {

using nlohmann::json;
using node::KnobKind;

struct Setting {
  std::string node, knob, value;
};

// "soft.size=8": a node's name may hold dots, a knob's name none.
std::optional<Setting> split(const std::string& text) {
  const size_t equals = text.find('=');
  if (equals == std::string::npos) return std::nullopt;
  const size_t dot = text.rfind('.', equals);
  if (dot == std::string::npos || dot == 0 || dot + 1 == equals) return std::nullopt;
  return Setting{text.substr(0, dot), text.substr(dot + 1, equals - dot - 1), text.substr(equals + 1)};
}

std::string text_of(const json& object, const char* member) {
  const auto found = object.is_object() ? object.find(member) : object.end();
  return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

// Whether a knob of this node is a text of any kind.
bool takes_text(const json& node, const std::string& knob) {
  const node::NodeType* const type = nodes::find_type(text_of(node, "type"));
  if (!type) return false;
  const auto& specs = type->knobs;
  const auto spec =
      std::find_if(specs.begin(), specs.end(), [&](const auto& each) { return each.name == knob; });
  if (spec == specs.end()) return false;
  return spec->kind != KnobKind::number && spec->kind != KnobKind::integer && spec->kind != KnobKind::flag;
}

// Where JSON would make a number or a flag of a text, the word is meant.
json value_of(const std::string& text, bool takes_text, const std::string& place) {
  if (!json::accept(text, true)) return text;
  json value = parse_json(text, place);
  const bool word = !value.is_string() && !value.is_array() && !value.is_object();
  return takes_text && word ? json(text) : value;
}

json* find_node(json& root, const std::string& name, std::vector<std::string>& names) {
  const auto list = root.find("nodes");
  if (list == root.end() || !list->is_array()) return nullptr;
  for (json& node : *list) {
    names.push_back(text_of(node, "name"));
    if (names.back() == name) return &node;
  }
  return nullptr;
}

}  // namespace

void apply_settings(json& root, const std::vector<std::string>& settings, Problems& problems) {
  for (const std::string& text : settings) {
    const auto parts = split(text);
    if (!parts) {
      problems.add("--set: ", "expected node.knob=VALUE, found " + quoted(text));
      continue;
    }
    const Setting& setting = *parts;
    const std::string place = "--set " + setting.node + "." + setting.knob + ": ";
    std::vector<std::string> names;
    json* const node = find_node(root, setting.node, names);
    if (!node) {
      problems.add(place, "there is no node " + quoted(setting.node) + did_you_mean(setting.node, names));
      continue;
    }
    json& knobs = (*node)["knobs"];
    if (!knobs.is_object() && !knobs.is_null()) continue;  // the file's own fault, which is reported
    knobs[setting.knob] = value_of(setting.value, takes_text(*node, setting.knob), place);
    const std::string in_file = node_place(setting.node);
    problems.say_of(in_file + "knob " + quoted(setting.knob) + ": ", place);
    problems.say_of(in_file + "unknown knob " + quoted(setting.knob),
                    place + "unknown knob " + quoted(setting.knob));
  }
}

}  // namespace host::shot::asked
