#include "host/render_farm/verify.h"

#include "host/frame/project.h"
#include "host/plan/digest.h"
#include "host/plan/obstacles.h"
#include "host/plates/headers.h"
#include "host/plates/made.h"
#include "host/shot/frames.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <map>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

#include <nlohmann/json.hpp>

namespace host::render_farm {
namespace {

struct Look {
  int64_t frame = 0;
  plan::Target target;
  std::string said;    // by the file, of what it was made from
  std::string reason;  // why it is not what it should be
};

void decode(Look& look) {
  const std::string& path = look.target.file.path;
  try {
    if (!plan::stands(path)) {
      look.reason = "missing";
    } else {
      look.said = plates::made_whole(path).digest;
      if (look.said.empty()) look.reason = "does not say what it was made from";
    }
  } catch (const std::exception& error) {
    const std::string text = error.what();
    look.reason = "cannot be read" + (text.starts_with(path) ? text.substr(path.size()) : ": " + text);
  }
}

void decode_all(std::vector<Look>& looks, int threads) {
  std::atomic<size_t> next = 0;
  const auto work = [&] {
    for (size_t at = next++; at < looks.size(); at = next++) decode(looks[at]);
  };
  const size_t asked =
      threads > 0 ? static_cast<size_t>(threads) : std::max(1U, std::thread::hardware_concurrency());
  std::vector<std::thread> others;
  others.reserve(asked);
  for (size_t i = 1; i < std::min(asked, looks.size()); ++i) others.emplace_back(work);
  work();
  for (std::thread& other : others) other.join();
}

void compare(Look& look, plan::Digests& digests) {
  if (!look.reason.empty()) return;
  try {
    if (digests.of(look.target, look.frame, look.said) != look.said)
      look.reason = "was made from something else than the composition and its inputs are now";
  } catch (const frame::FrameError& error) {
    look.reason = error.what();
  }
}

}  // namespace

Verdict verify(const shot::Composition& composition, const std::vector<int64_t>& frames,
               const std::vector<std::string>& outputs, double scale, int threads) {
  plates::Headers headers;
  const node::Project project = frame::make_project(composition, scale, headers);
  const plan::Targets targets(composition, project, outputs);
  targets.check(frames);
  std::vector<Look> looks;
  looks.reserve(frames.size());
  for (const int64_t frame : frames)
    for (plan::Target& target : targets.at(frame)) looks.push_back({frame, std::move(target), {}, {}});
  decode_all(looks, threads);
  plan::Digests digests(composition, project);
  Verdict verdict;
  verdict.frames = verdict.whole = static_cast<int64_t>(frames.size());
  for (Look& look : looks) {
    compare(look, digests);
    if (look.reason.empty()) continue;
    if (verdict.flaws.empty() || verdict.flaws.back().frame != look.frame) --verdict.whole;
    verdict.flaws.push_back({look.frame, look.target.file.path, look.reason});
  }
  return verdict;
}

std::string verdict_text(const Verdict& verdict) {
  std::string text;
  std::vector<int64_t> frames;
  for (const Flaw& flaw : verdict.flaws) {
    text += "frame " + std::to_string(flaw.frame) + ": " + flaw.path + ": " + flaw.reason + "\n";
    if (frames.empty() || frames.back() != flaw.frame) frames.push_back(flaw.frame);
  }
  text += std::to_string(verdict.whole) + " of " + std::to_string(verdict.frames) + " frames are whole";
  return text + (frames.empty() ? "\n" : "; not " + shot::frames_text(frames) + "\n");
}

std::string verdict_json(const Verdict& verdict) {
  nlohmann::ordered_json flaws = nlohmann::ordered_json::array();
  for (const Flaw& flaw : verdict.flaws)
    flaws.push_back({{"frame", flaw.frame}, {"path", flaw.path}, {"reason", flaw.reason}});
  const nlohmann::ordered_json all = {{"frames", verdict.frames}, {"whole", verdict.whole}, {"flaws", flaws}};
  return all.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace host::render_farm
