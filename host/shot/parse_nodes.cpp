#include "host/shot/parse_nodes.h"

#include "host/base/suggest.h"
#include "host/nodes/catalogue.h"
#include "host/shot/parse_knobs.h"

#include <map>
#include <optional>
#include <string>
#include <utility>

namespace host::shot {

using node::InputSpec;
using node::Node;
using node::NodeType;

namespace {

const NodeType* parse_type(const nlohmann::json& object, const std::string& place, Problems& problems) {
  const auto given = object.value("type", nlohmann::json());
  if (!given.is_string()) {
    problems.add(place, "\"type\": expected a node type, found " + found(given));
    return nullptr;
  }
  const auto name = given.get<std::string>();
  if (const NodeType* type = nodes::find_type(name)) return type;
  std::vector<std::string> names;
  for (const NodeType& each : nodes::catalogue()) names.push_back(each.name);
  problems.add(place, "unknown type " + quoted(name) + did_you_mean(name, names));
  return nullptr;
}

// Turns names into connections of one node.
class Connector {
 public:
  Connector(Node& node, const std::map<std::string, int>& positions, Problems& problems)
      : node_(node), positions_(positions), place_(node_place(node.name)), problems_(problems) {
    node_.inputs.assign(node_.type->inputs.size(), -1);
  }

  void connect(const nlohmann::json& inputs) {
    if (node_.type->takes_layers) node_.layers.assign(1, "");
    if (inputs.is_object() && node_.type->takes_layers) {
      connect_layers(inputs);
    } else if (inputs.is_string() && !node_.inputs.empty()) {
      fill(0, inputs);
    } else if (inputs.is_array()) {
      connect_in_order(inputs);
    } else if (inputs.is_object()) {
      connect_by_name(inputs);
    } else if (!inputs.is_null()) {
      problems_.add(place_, "\"inputs\": expected " + input_names() + ", found " + found(inputs));
    }
    for (size_t i = 0; i < node_.type->inputs.size(); ++i) {
      const InputSpec& spec = node_.type->inputs[i];
      if (spec.required && node_.inputs[i] < 0 && !faulty_) {
        problems_.add(place_, "input " + quoted(spec.name) + " is not connected");
      }
    }
  }

 private:
  std::string input_names() const {
    std::string list;
    for (const InputSpec& spec : node_.type->inputs) list += (list.empty() ? "" : ", ") + quoted(spec.name);
    return list.empty() ? "none, because the type has no inputs" : "an object with " + list;
  }

  void connect_in_order(const nlohmann::json& list) {
    if (list.size() > node_.inputs.size() && !node_.type->repeats_last_input) {
      problems_.add(place_, "\"inputs\": expected at most " + std::to_string(node_.inputs.size()) +
                                ", found " + found(list));
      faulty_ = true;
      return;
    }
    for (size_t i = 0; i < list.size(); ++i) fill(i, list[i]);
  }

  // The main image first, under its name or that of the type's input; the others in the order of their names.
  void connect_layers(const nlohmann::json& object) {
    const std::string& own = node_.type->inputs[0].name;
    const auto is_main = [&own](const std::string& name) { return name == own || name == "rgba"; };
    std::vector<std::string> names;
    for (const auto& [name, value] : object.items()) {
      names.insert(is_main(name) ? names.begin() : names.end(), name);
      if (!name.empty()) continue;
      problems_.add(place_, "a layer without a name");
      faulty_ = true;
    }
    if (names.size() > 1 && is_main(names[1])) {
      problems_.add(place_, "inputs \"image\" and \"rgba\" are one: the main image");
      faulty_ = true;
    }
    node_.layers.clear();
    for (size_t i = 0; i < names.size(); ++i) {
      fill(i, object[names[i]], names[i]);
      node_.layers.push_back(is_main(names[i]) ? "" : names[i]);
    }
  }

  void connect_by_name(const nlohmann::json& object) {
    const std::vector<InputSpec>& specs = node_.type->inputs;
    std::vector<std::string> names;
    names.reserve(specs.size());
    for (const InputSpec& spec : specs) names.push_back(spec.name);
    for (const auto& [name, value] : object.items()) {
      const auto at = std::find(names.begin(), names.end(), name);
      if (at == names.end()) {
        problems_.add(place_, "unknown input " + quoted(name) + did_you_mean(name, names));
        faulty_ = true;
        continue;
      }
      const auto slot = static_cast<size_t>(at - names.begin());
      const bool repeats = node_.type->repeats_last_input && slot + 1 == specs.size();
      if (!repeats || !value.is_array()) {
        fill(slot, value);
        continue;
      }
      for (size_t i = 0; i < value.size(); ++i) fill(slot + i, value[i]);
    }
  }

  void fill(size_t slot, const nlohmann::json& value) {
    fill(slot, value, node_.type->inputs[std::min(slot, node_.type->inputs.size() - 1)].name);
  }

  void fill(size_t slot, const nlohmann::json& value, const std::string& name) {
    if (slot >= node_.inputs.size()) node_.inputs.resize(slot + 1, -1);
    const std::string place = place_ + "input " + quoted(name) + ": ";
    const auto found_at = value.is_string() ? positions_.find(value.get<std::string>()) : positions_.end();
    if (found_at != positions_.end()) {
      node_.inputs[slot] = found_at->second;
      return;
    }
    faulty_ = true;
    if (!value.is_string()) {
      problems_.add(place, "expected a node's name, found " + found(value));
      return;
    }
    std::vector<std::string> names;
    for (const auto& each : positions_) names.push_back(each.first);
    const auto wanted = value.get<std::string>();
    problems_.add(place, "there is no node " + quoted(wanted) + did_you_mean(wanted, names));
  }

  Node& node_;
  const std::map<std::string, int>& positions_;
  std::string place_;
  Problems& problems_;
  bool faulty_ = false;  // said already; a missing connection would only repeat it
};

// The node without its connections, or nothing when it has no name or type.
std::optional<Node> parse_node(const nlohmann::json& object, size_t number, Problems& problems) {
  const std::string unnamed = "node number " + std::to_string(number) + ": ";
  if (!object.is_object()) {
    problems.add(unnamed, "expected an object, found " + found(object));
    return std::nullopt;
  }
  const auto name = object.value("name", nlohmann::json());
  if (!name.is_string() || name.get<std::string>().empty()) {
    problems.add(unnamed, "\"name\": expected a text, found " + found(name));
    return std::nullopt;
  }
  Node node;
  node.name = name.get<std::string>();
  const std::string place = node_place(node.name);
  refuse_unknown(object, {"name", "type", "inputs", "knobs", "comment", "disabled"}, place, problems);
  const auto disabled = object.value("disabled", nlohmann::json(false));
  if (!disabled.is_boolean())
    problems.add(place, "\"disabled\": expected true or false, found " + found(disabled));
  node.disabled = disabled.is_boolean() && disabled.get<bool>();
  node.type = parse_type(object, place, problems);
  if (!node.type) return std::nullopt;
  auto knobs = object.value("knobs", nlohmann::json::object());
  if (!knobs.is_object()) {
    problems.add(place, "\"knobs\": expected an object, found " + found(knobs));
    knobs = nlohmann::json::object();
  }
  node.knobs = parse_knobs(node.type->knobs, knobs, place, problems);
  const node::Knobs given(node.type->knobs, node.knobs, 0, 1);
  for (const std::string& problem : node.type->operation->check(given)) problems.add(place, problem);
  return node;
}

}  // namespace

std::vector<Node> parse_nodes(const nlohmann::json& list, Problems& problems) {
  std::vector<Node> parsed;
  if (!list.is_array() || list.empty()) {
    problems.add("\"nodes\": ", "expected a list of nodes, found " + found(list));
    return parsed;
  }
  std::map<std::string, int> positions;
  std::vector<const nlohmann::json*> objects;
  bool whole = true;
  for (size_t i = 0; i < list.size(); ++i) {
    auto node = parse_node(list[i], i + 1, problems);
    if (!node) {
      whole = false;
      continue;
    }
    if (!positions.emplace(node->name, static_cast<int>(parsed.size())).second) {
      problems.add(node_place(node->name), "the name is taken by an earlier node");
    }
    parsed.push_back(std::move(*node));
    objects.push_back(&list[i]);
  }
  // With nodes missing, every reference to them would be reported as well.
  if (!whole) return parsed;
  for (size_t i = 0; i < parsed.size(); ++i) {
    Connector(parsed[i], positions, problems).connect(objects[i]->value("inputs", nlohmann::json()));
  }
  return parsed;
}

}  // namespace host::shot
