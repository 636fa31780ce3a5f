#include "host/render_farm/job.h"

#include "host/files/atomic_file.h"
#include "host/frame/project.h"
#include "host/plan/targets.h"
#include "host/plates/headers.h"
#include "host/render_farm/journal.h"
#include "host/shot/frames.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <deque>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <nlohmann/json.hpp>

namespace host::render_farm {

namespace fs = std::filesystem;

namespace {

std::string number_text(double value) {
  return nlohmann::json(value).dump();
}

void add_option(std::vector<std::string>& words, bool given, const std::string& name,
                const std::string& value) {
  if (given) words.push_back(name + "=" + value);
}

// What rendering and verifying are told alike.
void add_common(const Job& job, std::vector<std::string>& words) {
  for (const std::string& each : job.asked.settings) words.push_back("--set=" + each);
  for (const std::string& each : job.asked.nodes) words.push_back("--node=" + each);
  for (const std::string& each : job.asked.views) words.push_back("--views=" + each);
  for (const std::string& each : job.outputs) words.push_back("--output=" + each);
  add_option(words, job.scale != 1, "--proxy", number_text(job.scale));
  add_option(words, job.threads > 0, "--threads", std::to_string(job.threads));
}

}  // namespace

fs::path job_folder(const shot::Composition& composition, const std::vector<std::string>& outputs) {
  plates::Headers headers;
  const node::Project project = frame::make_project(composition, 1, headers);
  const plan::Targets targets(composition, project, outputs);
  const auto folder_at = [&](int64_t frame) {
    const auto all = targets.at(frame);
    if (all.empty()) throw plan::TargetError(composition.file + ": it writes no file");
    return fs::absolute(all.front().file.path).lexically_normal().parent_path();
  };
  const int64_t first = composition.frames.front();
  fs::path folder = folder_at(first);
  // Another number shows which folders it stands in.
  fs::path other = folder_at(first + 1);
  while (folder != other) {
    folder = folder.parent_path();
    other = other.parent_path();
  }
  return folder / ".quorvel" / fs::path(composition.file).stem();
}

fs::path journal_of(const Job& job) {
  return job.folder.string() + ".jsonl";
}

void save(const Job& job) {
  nlohmann::ordered_json object = {{"composition", job.composition.string()},
                                   {"program", job.program.string()},
                                   {"set", job.asked.settings},
                                   {"nodes", job.asked.nodes},
                                   {"views", job.asked.views},
                                   {"outputs", job.outputs},
                                   {"gpu", job.gpu},
                                   {"scale", job.scale},
                                   {"threads", job.threads},
                                   {"memory", job.memory},
                                   {"base", job.base},
                                   {"images", job.images},
                                   {"content", job.by_content},
                                   {"frames", shot::frames_text(job.frames)},
                                   {"retries", job.retries},
                                   {"extra", job.extra},
                                   {"array_id", job.array_id},
                                   {"check_id", job.check_id}};
  for (const Chunk& chunk : job.chunks) object["chunks"].push_back(shot::frames_text(chunk));
  const std::string text = object.dump(1) + "\n";
  files::write_whole(job.folder / "job.json",
                     {reinterpret_cast<const unsigned char*>(text.data()), text.size()});
}

std::optional<Job> load(const fs::path& folder) {
  const fs::path file = folder / "job.json";
  std::ifstream stream(file);
  if (!stream) return std::nullopt;
  const std::string text{std::istreambuf_iterator<char>(stream), {}};
  Job job;
  try {
    const auto object = nlohmann::json::parse(text);
    job.name = folder.filename().string();
    job.folder = folder;
    job.composition = object.at("composition").get<std::string>();
    job.program = object.at("program").get<std::string>();
    object.at("set").get_to(job.asked.settings);
    object.at("nodes").get_to(job.asked.nodes);
    object.at("views").get_to(job.asked.views);
    object.at("outputs").get_to(job.outputs);
    object.at("gpu").get_to(job.gpu);
    object.at("scale").get_to(job.scale);
    object.at("threads").get_to(job.threads);
    object.at("memory").get_to(job.memory);
    job.base = object.value("base", job.base);
    job.images = object.value("images", job.images);
    object.at("content").get_to(job.by_content);
    object.at("retries").get_to(job.retries);
    object.at("extra").get_to(job.extra);
    object.at("array_id").get_to(job.array_id);
    object.at("check_id").get_to(job.check_id);
    job.frames = shot::parse_frames(object.at("frames").get<std::string>());
    for (const auto& chunk : object.value("chunks", nlohmann::json::array()))
      job.chunks.push_back(shot::parse_frames(chunk.get<std::string>()));
  } catch (const std::exception& error) {
    throw std::runtime_error(file.string() + ": is no job: " + error.what());
  }
  return job;
}

std::vector<std::string> render_words(const Job& job) {
  std::vector<std::string> words = {job.program.string(), "render",       job.composition.string(),
                                    "--skip-current",     "--keep-going", "--progress=plain"};
  add_common(job, words);
  add_option(words, job.memory > 0, "--memory", std::to_string(std::min(job.memory, image_bytes(job))));
  add_option(words, job.gpu != "auto", "--gpu", job.gpu);
  if (job.by_content) words.emplace_back("--content");
  return words;
}

std::vector<std::string> verify_words(const Job& job) {
  std::vector<std::string> words = {job.program.string(), "verify", job.composition.string()};
  add_common(job, words);
  return words;
}

uint64_t image_bytes(const Job& job) {
  return job.images > 0 ? job.images : job.memory;
}

uint64_t memory_mib(const Job& job) {
  constexpr uint64_t step = uint64_t{1} << 20;
  return (image_bytes(job) + job.base + step - 1) / step;
}

Times times_in(const fs::path& journal) {
  constexpr size_t latest = 200;
  std::deque<double> took;
  read_journal(journal, [&took](const Entry& entry) {
    if (entry.outcome != "done") return;
    took.push_back(entry.ms);
    if (took.size() > latest) took.pop_front();
  });
  if (took.empty()) return {};
  std::sort(took.begin(), took.end());
  return {took.back(), std::max(1.0, took[took.size() / 2])};
}

int64_t automatic_chunk(const Times& times, int64_t frames, int64_t at_once) {
  constexpr double wanted = 10 * 60e3, longest = 30 * 60e3;
  constexpr double share = 20;  // the first frame is to be no more than so much of a chunk
  if (times.each <= 0) return 1;
  const double most = std::max(wanted, std::min(longest, share * times.first)) / times.each;
  const double even = std::ceil(static_cast<double>(frames) / static_cast<double>(at_once));
  const double least = std::ceil(times.first / times.each);
  return std::max<int64_t>(1, std::llround(std::min({most, std::max(even, least), 1e6})));
}

std::vector<Chunk> chunks_of(const std::vector<int64_t>& frames, int64_t size, int64_t most) {
  const auto count = static_cast<int64_t>(frames.size());
  const auto each = static_cast<size_t>(std::max(size, (count + most - 1) / most));
  std::vector<Chunk> chunks;
  chunks.reserve(frames.size() / each + 1);
  for (size_t at = 0; at < frames.size(); at += each) {
    const auto begin = frames.begin() + static_cast<std::ptrdiff_t>(at);
    chunks.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(std::min(each, frames.size() - at)));
  }
  return chunks;
}

}  // namespace host::render_farm
