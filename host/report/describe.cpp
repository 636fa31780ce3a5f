#include "host/report/describe.h"

#include "host/node/expectation.h"
#include "host/nodes/catalogue.h"

#include <algorithm>

namespace host::report {
namespace {

std::string default_text(const node::KnobSpec& spec) {
  std::string text;
  for (const double value : spec.defaults) {
    const bool is_flag = spec.kind == node::KnobKind::flag;
    text +=
        (text.empty() ? "" : ", ") + (is_flag ? (value != 0 ? "true" : "false") : node::number_text(value));
  }
  if (spec.kind == node::KnobKind::object) return spec.default_text;
  if (spec.defaults.empty()) return "\"" + spec.default_text + "\"";
  return spec.length() > 1 ? "[" + text + "]" : text;
}

size_t longest_name(const auto& specs) {
  size_t longest = 0;
  for (const auto& spec : specs) longest = std::max(longest, spec.name.size());
  return longest;
}

std::string padded(std::string name, size_t width) {
  name.resize(std::max(name.size(), width), ' ');
  return "  " + name + "  ";
}

}  // namespace

std::string describe(const node::NodeType& type) {
  std::string text = type.name + " (" + type.family + "): " + type.help + "\n";
  const size_t width = std::max(longest_name(type.inputs), longest_name(type.knobs));
  if (!type.inputs.empty()) text += "\nInputs\n";
  for (const node::InputSpec& input : type.inputs) {
    const bool repeats = type.repeats_last_input && &input == &type.inputs.back();
    text += padded(input.name, width) + input.help + (input.required ? "" : " Optional.") +
            (repeats ? " Any number, as a list.\n" : "\n");
  }
  if (!type.knobs.empty()) text += "\nKnobs\n";
  for (const node::KnobSpec& spec : type.knobs) {
    text += padded(spec.name, width) + spec.help + "\n" + padded("", width) + node::expectation(spec) +
            (spec.pixels ? ", in pixels" : "") + "; default " + default_text(spec) + "\n";
  }
  return text;
}

std::string describe_catalogue() {
  std::string text;
  const size_t width = longest_name(nodes::catalogue());
  std::string family;
  for (const node::NodeType& type : nodes::catalogue()) {
    if (type.family != family) text += (text.empty() ? "" : "\n") + type.family + "\n";
    family = type.family;
    text += padded(type.name, width) + type.help + "\n";
  }
  return text + "\nquorvel nodes TYPE says more of one.\n";
}

}  // namespace host::report
