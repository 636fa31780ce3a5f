#include "host/service/shared_renderer.h"

#include "host/base/library_threads.h"
#include "host/plan/plan.h"
#include "host/render/prepare.h"
#include "host/service/shared_renderer_state.h"

#include <functional>
#include <new>
#include <utility>

namespace host::service {
namespace {

// Runs a call on the thread, which hands it the flag that ends it. Throws what the call throws, and
// Interrupted.
void call(SharedRenderer::State& state, const SharedRenderer::GiveUp& give_up,
          const std::function<void(const std::atomic<bool>& stop)>& work) {
  const std::shared_ptr<gpu::GpuThread> thread = state.thread();
  std::atomic<bool> stop = false;
  state.add_stop(stop);
  const std::shared_ptr<void> added(nullptr, [&](void*) { state.remove_stop(stop); });
  const auto ends = [&] {
    if (give_up && give_up()) stop = true;
    return stop.load();
  };
  const auto unless_stopped = [&] {
    if (stop) throw frame::Interrupted();
    work(stop);
    state.keep_notices();
  };
  if (!thread->run(unless_stopped, ends)) throw frame::Interrupted();
}

}  // namespace

std::shared_ptr<gpu::GpuThread> SharedRenderer::State::thread() {
  gpu::GpuThread::check_process();
  const std::lock_guard lock(mutex_);
  if (!thread_) throw Closed();
  return thread_;
}

void SharedRenderer::State::add_stop(std::atomic<bool>& stop) {
  const std::lock_guard lock(mutex_);
  if (!thread_) throw Closed();
  stops_.insert(&stop);
}

void SharedRenderer::State::remove_stop(std::atomic<bool>& stop) {
  const std::lock_guard lock(mutex_);
  stops_.erase(&stop);
}

std::shared_ptr<gpu::GpuThread> SharedRenderer::State::begin_close() {
  const std::lock_guard lock(mutex_);
  for (std::atomic<bool>* const stop : stops_) *stop = true;
  return std::exchange(thread_, nullptr);
}

render::Renderer& SharedRenderer::State::renderer_of(const CompositionPtr& composition) {
  if (!renderer) {
    renderer = std::make_unique<render::Renderer>(composition, options, thread()->context());
    const std::lock_guard lock(mutex_);
    held_ = renderer->held();
  } else if (composition != last_) {
    renderer->replace(composition);
  }
  last_ = composition;
  return *renderer;
}

std::vector<draw::HeldImage> SharedRenderer::State::held() {
  const std::lock_guard lock(mutex_);
  return held_ ? held_->list() : std::vector<draw::HeldImage>();
}

std::vector<std::string> SharedRenderer::State::take_notices() {
  const std::lock_guard lock(mutex_);
  return std::exchange(notices_, {});
}

void SharedRenderer::State::keep_notices() {
  if (!renderer) return;
  const std::vector<std::string> taken = renderer->take_notices();
  const std::lock_guard lock(mutex_);
  notices_.insert(notices_.end(), taken.begin(), taken.end());
}

void SharedRenderer::State::end() {
  const std::exception_ptr why = std::make_exception_ptr(Closed());
  for (const auto& stream : std::exchange(streams, {})) stream->end(why);
  renderer.reset();
  last_.reset();
}

SharedRenderer::SharedRenderer(const render::RendererOptions& options, const gpu::DeviceChoice& choice) {
  render::RendererOptions own = options;
  if (!own.headers) own.headers = std::make_shared<plates::Headers>();
  hold_threads(own.threads);
  state_ = std::make_shared<State>(std::move(own), gpu::GpuThread::share(choice));
}

SharedRenderer::~SharedRenderer() {
  close();
}

void SharedRenderer::close() noexcept {
  try {
    gpu::GpuThread::check_process();
    const std::shared_ptr<gpu::GpuThread> thread = state_->begin_close();
    if (!thread) return;
    if (thread->here()) {
      thread->post([state = state_] { state->end(); });
    } else {
      thread->run([this] { state_->end(); });
    }
  } catch (...) {
    // In a copy of the process what lives on its thread is out of reach.
    (void)new (std::nothrow) std::shared_ptr<State>(state_);
  }
}

draw::FrameImage SharedRenderer::read(const CompositionPtr& composition, const draw::ImageRequest& request,
                                      int64_t frame, const GiveUp& give_up) {
  draw::FrameImage image;
  call(*state_, give_up, [&](const std::atomic<bool>& stop) {
    draw::ImageRequest stoppable = request;
    stoppable.stop = &stop;
    image = state_->renderer_of(composition).read(stoppable, frame);
  });
  return image;
}

std::unique_ptr<FrameStream> SharedRenderer::stream(const CompositionPtr& composition,
                                                    const draw::ImageRequest& request,
                                                    std::vector<int64_t> frames) {
  const auto state = std::make_shared<FrameStream::State>(state_, composition, request, std::move(frames));
  state_->add_stop(state->stop);
  return std::make_unique<FrameStream>(state);
}

render::Outcome SharedRenderer::write(const CompositionPtr& composition, render::RunOptions options,
                                      render::Progress& progress, const GiveUp& give_up) {
  render::Outcome outcome = render::Outcome::nothing;
  if (options.frames.empty()) options.frames = composition->frames;
  call(*state_, give_up, [&](const std::atomic<bool>& stop) {
    options.stop = &stop;
    const render::RendererOptions& own = state_->options;
    const auto thread = state_->thread();
    plan::Planner planner(*composition, {own.scale, options.outputs, options.existing,
                                         [&thread] { return thread->context().max_texture_size(); },
                                         own.headers, own.by_content});
    planner.targets().check(options.frames);
    const plan::Outlook outlook = render::prepare(planner, options);
    if (render::refused(outlook, options)) {
      std::string text;
      for (const std::string& problem : outlook.problems) text += (text.empty() ? "" : "\n") + problem;
      throw frame::FrameError(text);
    }
    outcome = state_->renderer_of(composition).run(options, progress);
  });
  return outcome;
}

draw::Stats SharedRenderer::stats() {
  draw::Stats stats;
  call(*state_, {}, [&](const std::atomic<bool>& /*stop*/) {
    if (state_->renderer) stats = state_->renderer->stats();
  });
  return stats;
}

std::vector<draw::HeldImage> SharedRenderer::held() {
  return state_->held();
}

std::vector<std::string> SharedRenderer::take_notices() {
  return state_->take_notices();
}

}  // namespace host::service
