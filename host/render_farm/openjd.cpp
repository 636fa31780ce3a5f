#include "host/render_farm/openjd.h"

#include "host/shot/frames.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace host::render_farm {
namespace {

using Json = nlohmann::ordered_json;

// Block style; texts stand as JSON has them, which YAML takes too.
void add_yaml(const Json& value, size_t depth, std::string& text) {
  const std::string margin(2 * depth, ' ');
  const auto add = [&](const Json& inner) {
    if (inner.is_structured() && !inner.empty()) {
      text += "\n";
      add_yaml(inner, depth + 1, text);
    } else {
      text += " " + inner.dump() + "\n";
    }
  };
  if (value.is_array()) {
    for (const Json& each : value) {
      text += margin + "-";
      add(each);
    }
    return;
  }
  for (const auto& [name, inner] : value.items()) {
    text += margin + name + ":";
    add(inner);
  }
}

// Control characters are refused, and more than 128 characters.
std::string template_name(const std::string& name) {
  std::string clean;
  for (const char c : name.substr(0, 120))
    if (static_cast<unsigned char>(c) >= 32 && c != 127) clean += c;
  return "quorvel " + clean;
}

Json amount(const char* name, uint64_t least) {
  return {{"name", name}, {"min", least}};
}

// The words behind the program, the composition given by the parameter.
Json arguments(std::vector<std::string> words, const std::string& frames) {
  words.at(2) = "{{Param.Composition}}";
  words.push_back("--frames=" + frames);
  return Json(std::vector<std::string>(words.begin() + 1, words.end()));
}

Json frames_parameter(const Job& job, bool task_chunking) {
  if (!task_chunking) {
    Json range = Json::array();
    for (const Chunk& chunk : job.chunks) range.push_back(shot::frames_text(chunk));
    return {{"name", "Frames"}, {"type", "STRING"}, {"range", range}};
  }
  std::vector<int64_t> ascending;
  size_t longest = 1;
  for (const Chunk& chunk : job.chunks) {
    ascending.insert(ascending.end(), chunk.begin(), chunk.end());
    longest = std::max(longest, chunk.size());
  }
  std::sort(ascending.begin(), ascending.end());
  return {{"name", "Frames"},
          {"type", "CHUNK[INT]"},
          {"range", shot::frames_text(ascending)},
          {"chunks", {{"defaultTaskCount", longest}, {"rangeConstraint", "CONTIGUOUS"}}}};
}

Json render_step(const Job& job, bool task_chunking) {
  Json amounts = Json::array({amount("amount.worker.memory", memory_mib(job))});
  if (job.threads > 0) amounts.push_back(amount("amount.worker.vcpu", static_cast<uint64_t>(job.threads)));
  Json run = {{"command", job.program.string()},
              {"args", arguments(render_words(job), "{{Task.Param.Frames}}")},
              {"cancelation", {{"mode", "NOTIFY_THEN_TERMINATE"}, {"notifyPeriodInSeconds", 60}}}};
  return {
      {"name", "render"},
      {"hostRequirements", {{"amounts", amounts}}},
      {"parameterSpace", {{"taskParameterDefinitions", Json::array({frames_parameter(job, task_chunking)})}}},
      {"script", {{"actions", {{"onRun", run}}}}}};
}

Json check_step(const Job& job) {
  const Json run = {{"command", job.program.string()},
                    {"args", arguments(verify_words(job), shot::frames_text(job.frames))}};
  return {{"name", "check"},
          {"dependencies", Json::array({Json{{"dependsOn", "render"}}})},
          {"script", {{"actions", {{"onRun", run}}}}}};
}

}  // namespace

std::string open_job(const Job& job, bool task_chunking, bool yaml) {
  Json whole = {{"specificationVersion", "jobtemplate-2023-09"}};
  if (task_chunking) whole["extensions"] = Json::array({"TASK_CHUNKING"});
  whole["name"] = template_name(job.name);
  whole["parameterDefinitions"] = Json::array({Json{{"name", "Composition"},
                                                    {"type", "PATH"},
                                                    {"objectType", "FILE"},
                                                    {"dataFlow", "IN"},
                                                    {"default", job.composition.string()}}});
  whole["steps"] = Json::array({render_step(job, task_chunking), check_step(job)});
  if (!yaml) return whole.dump(2) + "\n";
  std::string text;
  add_yaml(whole, 0, text);
  return text;
}

}  // namespace host::render_farm
