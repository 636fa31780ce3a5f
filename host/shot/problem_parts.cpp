#include "host/shot/problem_parts.h"

#include <cstddef>

namespace host::shot {
namespace {

// Takes `front NAME end` off the front of a line and returns the name; "" where the line begins otherwise.
std::string take_name(std::string_view& line, std::string_view front, std::string_view end) {
  if (!line.starts_with(front)) return "";
  const size_t behind = line.find(end, front.size());
  if (behind == std::string_view::npos) return "";
  std::string name(line.substr(front.size(), behind - front.size()));
  line.remove_prefix(behind + end.size());
  return name;
}

std::string take_suggestion(std::string_view& line) {
  constexpr std::string_view front = " (did you mean \"", end = "\"?)";
  const size_t at = line.rfind(front);
  if (at == std::string_view::npos || !line.ends_with(end)) return "";
  std::string suggestion(line.substr(at + front.size(), line.size() - end.size() - at - front.size()));
  line = line.substr(0, at);
  return suggestion;
}

Problem parts(std::string_view line, std::string_view file) {
  if (line.starts_with(file) && line.substr(file.size()).starts_with(": "))
    line.remove_prefix(file.size() + 2);
  Problem problem;
  problem.node = take_name(line, "node \"", "\": ");
  problem.knob = take_name(line, "knob \"", "\": ");
  problem.suggestion = take_suggestion(line);
  problem.message = line;
  if (problem.knob.empty()) problem.knob = take_name(line, "unknown knob \"", "\"");
  return problem;
}

}  // namespace

std::vector<Problem> problem_parts(std::string_view text, std::string_view file) {
  std::vector<Problem> problems;
  while (!text.empty()) {
    const size_t end = text.find('\n');
    problems.push_back(parts(text.substr(0, end), file));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return problems;
}

}  // namespace host::shot
