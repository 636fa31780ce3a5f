#include "host/base/stopwatch.h"
#include "host/draw/upcoming.h"
#include "host/plan/digest.h"
#include "host/plan/obstacles.h"
#include "host/plan/targets.h"
#include "host/render/delivery.h"
#include "host/render/renderer.h"
#include "host/render/renderer_state.h"

#include <algorithm>
#include <utility>

namespace host::render {
namespace {

const std::vector<int64_t>& checked_frames(const shot::Composition& composition, const RunOptions& options,
                                           const plan::Targets& targets) {
  const std::vector<int64_t>& frames = options.frames.empty() ? composition.frames : options.frames;
  targets.check(frames);
  return frames;
}

}  // namespace

// One run over the frames: everything that is not worth keeping between runs.
class Run {
 public:
  Run(Renderer::State& state, const RunOptions& options, Progress& progress)
      : state_(state),
        subject_(state.subject),
        composition_(subject_->composition),
        options_(options),
        progress_(progress),
        targets_(composition_, subject_->project, options.outputs),
        frames_(checked_frames(composition_, options, targets_)),
        upcoming_(composition_, subject_->project, subject_->keys, plan::images_of(composition_),
                  unfinished(), state.limits.frames_ahead),
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
    return failed_ > 0 ? Outcome::some_failed : Outcome::done;
  }

 private:
  // False when the run was told to stop.
  bool render_frames() {
    draw::Upcoming frame;
    while (upcoming_.next(frame)) {
      if (options_.stop && *options_.stop) return false;
      try {
        render_one(frame);
      } catch (const frame::Interrupted&) {
        delivery_.drop(frame.frame);
        return false;
      }
      report_finished();
      // A frame that could not be drawn ends the run at once, though earlier files are still on
      // their way; one that could not be written does so as soon as it is known.
      if ((draw_failed_ || failed_ > 0) && !options_.keep_going) break;
    }
    return true;
  }

  void render_one(const draw::Upcoming& frame) {
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
    const plan::Existing existing = options_.existing;
    if (existing != plan::Existing::skip && existing != plan::Existing::current) return frames_;
    std::vector<int64_t> left;
    for (const int64_t frame : frames_) (stands_already(frame) ? finished_before_ : left).push_back(frame);
    return left;
  }

  bool stands_already(int64_t frame) const {
    if (options_.existing == plan::Existing::current) return options_.kept.count(frame) > 0;
    if (options_.stale.count(frame) > 0) return false;
    const std::vector<plan::Target> targets = targets_.at(frame);
    return std::all_of(targets.begin(), targets.end(),
                       [](const plan::Target& target) { return plan::stands(target.file.path); });
  }

  void draw_and_send(const draw::Upcoming& frame, FrameReport& report) {
    if (frame.error) throw frame::FrameError(*frame.error);
    const auto stale = options_.stale.find(frame.frame);
    if (stale != options_.stale.end()) throw frame::FrameError(stale->second);
    std::vector<plan::Target> targets = targets_.at(frame.frame);
    refuse_existing(targets, frame.frame);
    for (plan::Target& target : targets) {
      target.file.digest = plan::digest(composition_, frame.keyed, target, subject_->project);
      report.digest += (report.digest.empty() ? "" : " ") + target.file.digest;
    }
    state_.decoder.want(upcoming_.wanted(frame, state_.store));
    subject_->notice(frame.keyed);
    const std::vector<std::vector<size_t>> places = draw::places_of(targets, composition_.outputs.size());
    const auto images = subject_->evaluator.evaluate(
        frame.keyed, [this](int64_t key) { return upcoming_.asks_for(key); }, draw::parts_of(targets, places),
        draw::Manner{options_.stop});
    for (size_t i = 0; i < targets.size(); ++i) {
      std::vector<node::Image> layers;
      layers.reserve(places[i].size());
      for (const size_t at : places[i]) layers.push_back(images[at]);
      delivery_.send(frame.frame, layers, targets[i].file);
    }
  }

  // They may have come since the run was planned.
  void refuse_existing(const std::vector<plan::Target>& targets, int64_t frame) const {
    if (options_.existing != plan::Existing::refuse) return;
    for (const plan::Target& target : targets) {
      const std::string& path = target.file.path;
      if (plan::stands(path)) {
        throw frame::FrameError(frame::frame_place(composition_, target.node, frame) +
                                plan::exists_text(path));
      }
    }
  }

  void report_finished() {
    for (const std::string& text : state_.notices.take()) progress_.notice(text);
    for (const FrameReport& report : delivery_.take_finished()) {
      if (!report.error.empty()) {
        ++failed_;
        ++state_.stats.failed;
      } else if (!report.skipped) {
        ++state_.stats.frames;
      }
      progress_.frame(report);
    }
  }

  Renderer::State& state_;
  const SubjectPtr subject_;
  const shot::Composition& composition_;
  const RunOptions& options_;
  Progress& progress_;
  const plan::Targets targets_;
  std::vector<int64_t> frames_;
  std::vector<int64_t> finished_before_;
  draw::UpcomingFrames upcoming_;
  Delivery delivery_;
  bool draw_failed_ = false;
  int64_t failed_ = 0;
  bool over_memory_ = false;
};

Outcome Renderer::run(const RunOptions& options, Progress& progress) {
  Outcome outcome = Outcome::nothing;
  {
    const Stopwatch watch(state_->stats.wall_ms);
    const Turn turn(*state_, options.stop);
    state_->ring.set(0);  // a run counts it by itself
    outcome = Run(*state_, options, progress).render_all();
  }
  if (outcome != Outcome::nothing) progress.end(outcome, stats());
  return outcome;
}

}  // namespace host::render
