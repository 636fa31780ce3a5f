#include "host/shot/asked/views.h"

#include "host/base/suggest.h"
#include "host/files/pattern.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace host::shot::asked {
namespace {

bool is_path(const node::Node& node, size_t knob) {
  return node.type->knobs[knob].kind == node::KnobKind::file;
}

bool names_view(const node::Node& node) {
  for (size_t i = 0; i < node.knobs.size(); ++i) {
    if (is_path(node, i) && files::has_view(node.knobs[i].text)) return true;
  }
  return false;
}

// The node as one view has it, still connected as in the text.
node::Node in_view(node::Node node, const std::string& view) {
  for (size_t i = 0; i < node.knobs.size(); ++i) {
    if (is_path(node, i)) node.knobs[i].text = files::view_path(node.knobs[i].text, view);
  }
  node.view = view;
  node.name += "." + view;
  return node;
}

}  // namespace

std::vector<std::string> parse_views(const nlohmann::json& value, const std::vector<std::string>& asked,
                                     Problems& problems) {
  std::vector<std::string> views;
  if (!value.is_null() && (!value.is_array() || value.empty())) {
    problems.add("\"views\": ",
                 "expected a list of texts such as [\"left\", \"right\"], found " + found(value));
    return views;
  }
  for (const nlohmann::json& each : value) {
    const auto view = each.is_string() ? each.get<std::string>() : std::string();
    const bool taken = std::find(views.begin(), views.end(), view) != views.end();
    if (view.empty() || taken || view.find('/') != std::string::npos) {
      problems.add("\"views\": ",
                   "expected texts that differ and can be part of a file's name, found " + found(each));
    } else {
      views.push_back(view);
    }
  }
  for (const std::string& view : asked) {
    if (std::find(views.begin(), views.end(), view) != views.end()) continue;
    problems.add("--views: ", views.empty() ? std::string("the composition has no \"views\"")
                                            : "there is no view " + quoted(view) + did_you_mean(view, views));
  }
  return asked.empty() ? views : asked;
}

void spread_over_views(Composition& composition, Problems& problems) {
  const std::vector<node::Node> given = std::exchange(composition.nodes, {});
  std::vector<std::vector<int>> places(given.size());  // of each node: one, or one a view
  const auto place_of = [&](int node, size_t view) {
    const std::vector<int>& each = places[static_cast<size_t>(node)];
    return each.size() == 1 ? each[0] : each.at(view);
  };
  const auto put = [&](size_t at, node::Node node, size_t view) {
    for (int& input : node.inputs) input = input < 0 ? -1 : place_of(input, view);
    places[at].push_back(static_cast<int>(composition.nodes.size()));
    composition.nodes.push_back(std::move(node));
  };
  std::vector<uint8_t> depends(given.size());
  for (size_t at = 0; at < given.size(); ++at) {
    const node::Node& node = given[at];
    const auto upstream = [&](int input) { return input >= 0 && depends[static_cast<size_t>(input)] != 0; };
    const bool named = names_view(node);
    if (named && composition.views.empty()) {
      problems.add(node_place(node.name), "%V and %v stand for a view, and the composition has no \"views\"");
    }
    depends[at] = named || std::any_of(node.inputs.begin(), node.inputs.end(), upstream) ? 1 : 0;
    if (depends[at] == 0 || composition.views.empty()) {
      put(at, node, 0);
      continue;
    }
    for (size_t view = 0; view < composition.views.size(); ++view) {
      put(at, in_view(node, composition.views[view]), view);
    }
  }
  const std::vector<int> outputs = std::exchange(composition.outputs, {});
  for (const int output : outputs) {
    const std::vector<int>& each = places[static_cast<size_t>(output)];
    composition.outputs.insert(composition.outputs.end(), each.begin(), each.end());
  }
}

}  // namespace host::shot::asked
