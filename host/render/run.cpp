#include "host/base/stopwatch.h"
#include "host/frame/colors.h"
#include "host/frame/digest.h"
#include "host/frame/frame_notices.h"
#include "host/frame/obstacles.h"
#include "host/gpu/stoppable_draws.h"
#include "host/render/delivery.h"
#include "host/render/renderer.h"
#include "host/render/renderer_state.h"
#include "host/render/upcoming.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace host::render {
namespace {

std::vector<int64_t> checked_frames(const Renderer::State& state) {
  const auto& asked = state.options.frames;
  const std::vector<int64_t>& frames = asked.empty() ? state.composition.frames : asked;
  state.targets.check(frames);
  return frames;
}

}  // namespace

// One run over the frames: everything that is not worth keeping between runs.
class Run {
 public:
  Run(Renderer::State& state, Progress& progress)
      : state_(state),
        progress_(progress),
        frames_(checked_frames(state)),
        upcoming_(state.composition, state.project, state.keys, unfinished(), state.limits.frames_ahead),
        delivery_(state.limits, state.buffers, state.notices, state.use) {}

  Outcome render_all() {
    if (frames_.empty()) return Outcome::nothing;
    progress_.begin(static_cast<int64_t>(frames_.size()), state_.gpu.renderer(), state_.gpu.software());
    for (const int64_t frame : finished_before_) {
      FrameReport report;
      report.frame = frame;
      report.skipped = true;
      progress_.frame(report);
    }
    const bool whole = render_frames();
    delivery_.finish();
    report_finished();
    delivery_.add_to(state_.stats);
    state_.gather_stats();
    if (!whole) return Outcome::interrupted;
    if (over_memory_) return Outcome::memory;
    return state_.stats.failed > 0 ? Outcome::some_failed : Outcome::done;
  }

 private:
  // False when the run was told to stop.
  bool render_frames() {
    Upcoming frame;
    while (upcoming_.next(frame)) {
      if (state_.options.stop && *state_.options.stop) return false;
      try {
        render_one(frame);
      } catch (const frame::Interrupted&) {
        delivery_.drop(frame.frame);
        return false;
      }
      report_finished();
      // A frame that could not be drawn ends the run at once, though earlier files are still on
      // their way; one that could not be written does so as soon as it is known.
      if ((draw_failed_ || state_.stats.failed > 0) && !state_.options.keep_going) break;
    }
    return true;
  }

  void render_one(const Upcoming& frame) {
    delivery_.begin(frame.frame);
    FrameReport report;
    report.frame = frame.frame;
    const int64_t computed = state_.stats.computed;
    const int64_t hits = state_.stats.cache_hits;
    try {
      draw_and_send(frame, report);
    } catch (const frame::MemoryLimit& error) {
      over_memory_ = true;
      report.error = error.what();
    } catch (const frame::FrameError& error) {
      report.error = error.what();
    }
    draw_failed_ = draw_failed_ || !report.error.empty();
    report.computed = static_cast<int>(state_.stats.computed - computed);
    report.cached = static_cast<int>(state_.stats.cache_hits - hits);
    delivery_.end(report);
  }

  // The frames that are to be rendered; notes those whose files are there and may stay.
  std::vector<int64_t> unfinished() {
    const frame::Existing existing = state_.options.existing;
    if (existing != frame::Existing::skip && existing != frame::Existing::current) return frames_;
    std::vector<int64_t> left;
    for (const int64_t frame : frames_) (stands_already(frame) ? finished_before_ : left).push_back(frame);
    return left;
  }

  bool stands_already(int64_t frame) const {
    if (state_.options.existing == frame::Existing::current) return state_.options.kept.count(frame) > 0;
    if (state_.options.stale.count(frame) > 0) return false;
    const std::vector<frame::Target> targets = state_.targets.at(frame);
    return std::all_of(targets.begin(), targets.end(),
                       [](const frame::Target& target) { return frame::stands(target.file.path); });
  }

  void draw_and_send(const Upcoming& frame, FrameReport& report) {
    if (!frame.error.empty()) throw frame::FrameError(frame.error);
    const auto stale = state_.options.stale.find(frame.frame);
    if (stale != state_.options.stale.end()) throw frame::FrameError(stale->second);
    std::vector<frame::Target> targets = state_.targets.at(frame.frame);
    refuse_existing(targets, frame.frame);
    for (frame::Target& target : targets) {
      target.file.digest = frame::digest(state_.composition, frame.keyed, target, state_.project);
      report.digest += (report.digest.empty() ? "" : " ") + target.file.digest;
    }
    state_.decoder.want(upcoming_.wanted(frame, state_.store));
    note_colors(frame.frame);
    for (const std::string& text :
         frame::frame_notices(state_.composition, frame.keyed.graph, state_.project)) {
      state_.notices.add(text);
    }
    const std::vector<std::vector<size_t>> places = places_of(targets, state_.composition.outputs.size());
    const auto images = state_.evaluator.evaluate(
        frame.keyed, [this](int64_t key) { return upcoming_.asks_for(key); }, parts_of(targets, places));
    for (size_t i = 0; i < targets.size(); ++i) {
      std::vector<node::Image> layers;
      layers.reserve(places[i].size());
      for (const size_t at : places[i]) layers.push_back(images[at]);
      delivery_.send(frame.frame, layers, targets[i].file);
    }
  }

  // Of the first frame alone; its headers are on their way by then.
  void note_colors(int64_t frame) {
    if (std::exchange(colors_noted_, true)) return;
    for (const std::string& text : frame::color_notices(state_.composition, state_.project, frame)) {
      state_.notices.add(text);
    }
  }

  // They may have come since the run was planned.
  void refuse_existing(const std::vector<frame::Target>& targets, int64_t frame) const {
    if (state_.options.existing != frame::Existing::refuse) return;
    for (const frame::Target& target : targets) {
      const std::string& path = target.file.path;
      if (frame::stands(path)) {
        throw frame::FrameError(frame::frame_place(state_.composition, target.node, frame) +
                                frame::exists_text(path));
      }
    }
  }

  void report_finished() {
    for (const std::string& text : state_.notices.take()) progress_.notice(text);
    for (const FrameReport& report : delivery_.take_finished()) {
      if (!report.error.empty()) {
        ++state_.stats.failed;
      } else if (!report.skipped) {
        ++state_.stats.frames;
      }
      progress_.frame(report);
    }
  }

  Renderer::State& state_;
  Progress& progress_;
  std::vector<int64_t> frames_;
  std::vector<int64_t> finished_before_;
  UpcomingFrames upcoming_;
  Delivery delivery_;
  bool colors_noted_ = false;
  bool draw_failed_ = false;
  bool over_memory_ = false;
};

Outcome Renderer::run(Progress& progress) {
  Outcome outcome = Outcome::nothing;
  {
    const Stopwatch watch(state_->stats.wall_ms);
    std::optional<gpu::StoppableDraws> stoppable;
    if (state_->options.stop && state_->gpu.software()) stoppable.emplace(*state_->options.stop);
    outcome = Run(*state_, progress).render_all();
  }
  if (outcome != Outcome::nothing) progress.end(outcome, stats());
  return outcome;
}

}  // namespace host::render
