#include "host/nodes/channel_texts.h"

#include <qv/nodes/merge/channels.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>

namespace host::nodes {
namespace {

namespace logic = qv::nodes::merge;

constexpr const char* channel_list = "red, green, blue, alpha";
constexpr size_t words_a_route = 6;

std::optional<int64_t> number_of(const std::string& word) {
  int64_t value = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
  if (error != std::errc() || end != word.data() + word.size()) return std::nullopt;
  return value;
}

std::string quoted(const std::string& text) {
  return '"' + text + '"';
}

bool is_one_of(const std::string& word, int64_t least, int64_t most) {
  const auto value = number_of(word);
  return value && *value >= least && *value <= most;
}

// What is wrong with a route of six words, "" when nothing is.
std::string route_problem(const std::vector<std::string>& words) {
  const auto& [source, input, source_slot, target, group, target_slot] =
      std::array{words[0], words[1], words[2], words[3], words[4], words[5]};
  const auto known = [](const std::string& name) { return logic::shuffle_slot_of(name, -1) >= 0; };
  if (source != "black" && source != "white" && !known(source)) {
    return "expected a source channel (" + std::string(channel_list) + ", black, white), found " +
           quoted(source);
  }
  if (!known(target))
    return "expected an output channel (" + std::string(channel_list) + "), found " + quoted(target);
  if (!is_one_of(input, 0, 1)) return "expected input 0 or 1 of a source, found " + quoted(input);
  if (!is_one_of(group, 0, 1)) return "expected output group 0 or 1, found " + quoted(group);
  for (const std::string& slot : {source_slot, target_slot}) {
    if (!number_of(slot)) return "expected a fallback slot from 0 to 3, found " + quoted(slot);
  }
  return "";
}

}  // namespace

std::string with_layer(std::string_view text) {
  const std::string_view name = logic::strip(text);
  const bool bare = !name.empty() && name != "none" && name.find('.') == std::string_view::npos;
  return (bare ? "rgba." : "") + std::string(name);
}

std::vector<std::string> check_channel(const node::Knobs& knobs, std::string_view knob) {
  const std::string& text = knobs.text(knob);
  // Braces and a minus sign, which switches the channel off, come from texts of list-like hosts.
  std::string_view name = logic::strip(text);
  name.remove_prefix(std::min(name.find_first_not_of("{-"), name.size()));
  name.remove_suffix(name.size() - std::min(name.find_last_not_of('}') + 1, name.size()));
  const auto channel = logic::copy_parse_channel(with_layer(name));
  if (name.empty() || name == "none" || (channel && channel->layer == "rgba")) return {};
  return {"knob " + quoted(std::string(knob)) + ": expected a channel (" + channel_list + ", none), found " +
          quoted(text)};
}

std::string routing_text(const std::string& text) {
  if (text.find('=') == std::string::npos) return text;
  std::istringstream stream(text);
  std::string routes;
  size_t count = 0;
  for (std::string pair; stream >> pair; ++count) {
    const size_t sign = std::min(pair.find('='), pair.size());
    std::string source = pair.substr(std::min(sign + 1, pair.size()));
    const bool second = source.rfind("second.", 0) == 0;
    if (second || source.rfind("first.", 0) == 0) source.erase(0, source.find('.') + 1);
    if (source.empty()) source = "nothing";
    routes += " " + source + (second ? " 1 0 " : " 0 0 ") + pair.substr(0, sign) + " 0 0";
  }
  return std::to_string(count) + routes;
}

std::vector<std::string> check_routing(const std::string& text) {
  std::istringstream stream(routing_text(text));
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  if (words.empty()) return {};
  const std::string place = "knob \"routing\": ";
  const auto count = number_of(words[0]);
  const auto routes = (words.size() - 1) / words_a_route;
  if (!count || *count != static_cast<int64_t>(routes) || words.size() != 1 + words_a_route * routes) {
    return {place + "expected how many routes, then six words for each, found " + quoted(words[0]) + " and " +
            std::to_string(words.size() - 1) + " words"};
  }
  std::vector<std::string> problems;
  for (size_t i = 0; i < routes; ++i) {
    const auto first = words.begin() + static_cast<std::ptrdiff_t>(1 + words_a_route * i);
    const std::string problem = route_problem({first, first + words_a_route});
    if (problem.empty()) continue;
    problems.push_back(place);
    problems.back().append("route ").append(std::to_string(i + 1)).append(": ").append(problem);
  }
  return problems;
}

}  // namespace host::nodes
