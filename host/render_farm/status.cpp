#include "host/render_farm/status.h"

#include "host/frame/project.h"
#include "host/plan/obstacles.h"
#include "host/plates/headers.h"
#include "host/render_farm/journal.h"
#include "host/shot/frames.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <string_view>
#include <unordered_map>

#include <nlohmann/json.hpp>

namespace host::render_farm {
namespace {

using State = ChunkStatus::State;

constexpr std::array<const char*, 5> state_names = {"waiting", "running", "done", "failed", "unknown"};

const char* name_of(State state) {
  return state_names.at(static_cast<size_t>(state));
}

// What the journal tells of a job's frames: the last word on each.
struct Story {
  struct Told {
    bool made = false;
    std::string error;
  };
  std::unordered_map<int64_t, Told> frames;
  double ms = 0;
  int64_t timed = 0;

  explicit Story(const Job& job) {
    const std::string ours = job.array_id + "_";
    read_journal(journal_of(job), [&](const Entry& entry) {
      if (!std::string_view(entry.task).starts_with(ours)) return;
      Told& told = frames[entry.frame];
      told.made = entry.outcome != "failed";
      told.error = entry.error;
      if (entry.outcome != "done") return;
      ms += entry.ms;
      ++timed;
    });
  }

  bool made(int64_t frame) const {
    const auto found = frames.find(frame);
    return found != frames.end() && found->second.made;
  }
};

bool all_stand(const plan::Targets& targets, int64_t frame) {
  const auto all = targets.at(frame);
  return !all.empty() && std::all_of(all.begin(), all.end(), [](const plan::Target& target) {
    return plan::stands(target.file.path);
  });
}

// Why a chunk that ended has not all its frames: what the last frame's failure said, or how the task ended.
std::string why_failed(const Story& story, const std::vector<int64_t>& missing, const Task* task) {
  for (auto frame = missing.rbegin(); frame != missing.rend(); ++frame) {
    const auto told = story.frames.find(*frame);
    if (told != story.frames.end() && !told->second.error.empty()) return told->second.error;
  }
  const std::string frames = "frames " + shot::frames_text(missing) + " are missing";
  return task ? task->state + ": " + frames : frames;
}

ChunkStatus chunk_status(const Chunk& chunk, const plan::Targets& targets, const Story& story,
                         const Task* task) {
  ChunkStatus status;
  status.frames = shot::frames_text(chunk);
  status.total = static_cast<int64_t>(chunk.size());
  std::vector<int64_t> missing;
  for (const int64_t frame : chunk)
    if (!story.made(frame) || !all_stand(targets, frame)) missing.push_back(frame);
  status.whole = status.total - static_cast<int64_t>(missing.size());
  if (task) status.restarts = task->restarts;
  if (task && is_live(*task)) {
    status.state = task->state == "PENDING" ? State::waiting : State::running;
    if (status.state == State::waiting && task->reason != "None") status.why = task->reason;
    if (status.state == State::waiting) return status;
    status.node = task->node;
    if (!missing.empty()) status.at = missing.front();
  } else if (missing.empty()) {
    status.state = State::done;
  } else {
    status.state = State::failed;
    status.why = why_failed(story, missing, task);
  }
  return status;
}

std::string left_text(double seconds) {
  const int64_t whole = std::llround(std::ceil(seconds));
  if (whole < 120) return std::to_string(whole) + " s";
  if (whole < 7200) return std::to_string((whole + 59) / 60) + " min";
  return std::to_string((whole + 3599) / 3600) + " h";
}

std::string to_the_right(const std::string& text, size_t width) {
  return std::string(width - std::min(width, text.size()), ' ') + text;
}

// Behind its number.
std::string chunk_text(const ChunkStatus& chunk) {
  constexpr int64_t width = 20;
  const auto filled = static_cast<size_t>(width * chunk.whole / std::max<int64_t>(1, chunk.total));
  const std::string total = std::to_string(chunk.total);
  std::string frames = chunk.frames;
  frames.resize(std::max<size_t>(frames.size(), 12), ' ');
  std::string text = "  " + frames + " [" + std::string(filled, '=');
  text.append(width - filled, ' ').append("] ");
  text.append(to_the_right(std::to_string(chunk.whole), total.size())).append("/").append(total);
  text.append("  ").append(name_of(chunk.state));
  if (chunk.at) text += " at frame " + std::to_string(*chunk.at);
  if (!chunk.node.empty()) text += " on " + chunk.node;
  if (chunk.restarts == 1) text += ", put back once";
  if (chunk.restarts > 1) text += ", put back " + std::to_string(chunk.restarts) + " times";
  if (!chunk.why.empty()) text += ": " + chunk.why;
  return text;
}

}  // namespace

Status status_of(const shot::Composition& composition, const Job& job, const std::map<int, Task>* tasks) {
  plates::Headers headers;
  const node::Project project = frame::make_project(composition, job.scale, headers);
  const plan::Targets targets(composition, project, job.outputs);
  const Story story(job);
  Status status;
  status.frames = static_cast<int64_t>(job.frames.size());
  status.ended = true;
  int64_t left = 0, running = 0, in_chunks = 0;
  const std::map<int, Task> known = tasks ? *tasks : std::map<int, Task>();
  for (size_t i = 0; i < job.chunks.size(); ++i) {
    const auto task = known.find(static_cast<int>(i));
    ChunkStatus& chunk = status.chunks.emplace_back(
        chunk_status(job.chunks[i], targets, story, task == known.end() ? nullptr : &task->second));
    if (!tasks && chunk.state == State::failed) chunk.state = State::unknown;
    status.whole += chunk.whole;
    in_chunks += chunk.total;
    if (chunk.state == State::failed) ++status.failed;
    if (chunk.state == State::running) ++running;
    if (chunk.state == State::done || chunk.state == State::failed) continue;
    status.ended = false;
    left += chunk.total - chunk.whole;
  }
  // The others were current when the job was submitted.
  status.whole += status.frames - in_chunks;
  if (status.ended) {
    status.seconds_left = 0;
  } else if (story.timed > 0) {
    const double each = story.ms / static_cast<double>(story.timed) / 1000;
    status.seconds_left =
        each * static_cast<double>(left) / static_cast<double>(std::max<int64_t>(1, running));
  }
  return status;
}

std::string status_text(const Job& job, const Status& status) {
  std::string text = "job " + job.array_id + ": " + job.composition.string() + "\n";
  for (size_t i = 0; i < status.chunks.size(); ++i)
    text += to_the_right(std::to_string(i), 4) + chunk_text(status.chunks[i]) + "\n";
  text += std::to_string(status.whole) + " of " + std::to_string(status.frames) + " frames whole";
  if (status.failed > 0) text += ", " + std::to_string(status.failed) + " chunks failed";
  if (!status.ended && status.seconds_left >= 0)
    text += ", about " + left_text(status.seconds_left) + " left";
  return text + (status.ended ? "; ended\n" : "\n");
}

std::string status_json(const Job& job, const Status& status) {
  nlohmann::ordered_json chunks = nlohmann::ordered_json::array();
  for (const ChunkStatus& chunk : status.chunks) {
    nlohmann::ordered_json each = {{"frames", chunk.frames},
                                   {"state", name_of(chunk.state)},
                                   {"whole", chunk.whole},
                                   {"total", chunk.total},
                                   {"restarts", chunk.restarts}};
    if (chunk.at) each["at"] = *chunk.at;
    if (!chunk.node.empty()) each["node"] = chunk.node;
    if (!chunk.why.empty()) each["why"] = chunk.why;
    chunks.push_back(each);
  }
  nlohmann::ordered_json all = {{"job", job.array_id},        {"check", job.check_id},
                                {"frames", status.frames},    {"whole", status.whole},
                                {"failed", status.failed},    {"ended", status.ended},
                                {"chunks", std::move(chunks)}};
  if (status.seconds_left >= 0) all["seconds_left"] = status.seconds_left;
  return all.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace host::render_farm
