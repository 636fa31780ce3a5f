#include "host/live/session/session.h"

#include "host/base/library_threads.h"
#include "host/base/suggest.h"
#include "host/live/session/find.h"
#include "host/live/session/state.h"
#include "host/live/session/trace.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <utility>

namespace host::live::session {
namespace {

constexpr size_t most_versions = 32;

int node_of(const shot::Composition& composition, const std::string& name) {
  if (name.empty()) return composition.outputs.at(0);
  const int node = composition.find(name);
  if (node >= 0) return node;
  std::vector<std::string> names;
  names.reserve(composition.nodes.size());
  for (const node::Node& each : composition.nodes) names.push_back(each.name);
  throw Unknown("there is no node \"" + name + "\"" + did_you_mean(name, names));
}

draw::ImageRequest full_size(int node, draw::Area area, const std::atomic<bool>& stop) {
  draw::ImageRequest request;
  request.node = node;
  request.area = area;
  request.scale = 1;
  request.stop = &stop;
  return request;
}

// What a question is of, by its version and node.
struct Subject {
  int64_t version = 0;
  Session::CompositionPtr composition;
  int node = 0;
};

// With the state's mutex held.
Subject subject_of(const Session::CompositionPtr& composition, int64_t version, const std::string& node) {
  if (!composition) throw Unknown("there is no version " + std::to_string(version) + " any more");
  return {version, composition, node_of(*composition, node)};
}

void refuse_while_paused(bool paused) {
  if (paused) throw std::runtime_error("computing is paused");
}

}  // namespace

Session::Session(const render::RendererOptions& options, const gpu::DeviceChoice& device,
                 Listener& listener) {
  hold_threads(options.threads);
  state_ = std::make_shared<State>(options, gpu::GpuThread::share(device), listener);
  state_->thread->run([this] { state_->thread->context(); });
}

Session::~Session() {
  State& state = *state_;
  {
    const std::lock_guard lock(state.mutex);
    state.closing = true;
    state.stop = true;
    for (const QuestionPtr& question : state.questions) {
      question->error = std::make_exception_ptr(frame::Interrupted());
      question->over = true;
    }
    state.questions.clear();
  }
  state.changed.notify_all();
  try {
    state.thread->run([&state] { state.end(); });
  } catch (...) {
    // In a copy of the process what lives on its thread is out of reach.
    (void)new (std::nothrow) std::shared_ptr<State>(state_);
  }
}

void Session::set_composition(int64_t version, CompositionPtr composition) {
  State& state = *state_;
  const std::lock_guard lock(state.mutex);
  state.versions[version] = std::move(composition);
  state.newest = std::max(state.newest, version);
  while (state.versions.size() > most_versions) state.versions.erase(state.versions.begin());
  if (state.hand == State::Hand::ahead) state.stop = true;
  state.change_ahead();
  state.wake();
}

void Session::wish(const std::string& client, std::vector<Wish> wishes, const std::optional<Ahead>& ahead) {
  State& state = *state_;
  const std::lock_guard lock(state.mutex);
  if (state.wishes.set(client, std::move(wishes), state.newest, Wishes::Clock::now())) state.stop = true;
  if (ahead) {
    state.aheads[client] = *ahead;
    state.ahead_of = client;
  } else {
    state.aheads.erase(client);
  }
  state.change_ahead();
  state.nudge();
  state.wake();
}

void Session::look_again() {
  State& state = *state_;
  const std::lock_guard lock(state.mutex);
  state.look_anew = true;
  ++state.looks;
  if (state.hand == State::Hand::ahead) state.stop = true;
  state.change_ahead();
  state.wake();
}

void Session::leave(const std::string& client) {
  State& state = *state_;
  const std::lock_guard lock(state.mutex);
  if (state.wishes.leave(client)) state.stop = true;
  state.aheads.erase(client);
  for (const char slot : {'a', 'b'}) state.places_left.push_back(client + slot);
  state.change_ahead();
  state.wake();
}

void Session::pause(bool paused) {
  State& state = *state_;
  const std::lock_guard lock(state.mutex);
  state.paused = paused;
  if (paused) {
    state.stop = true;
  } else {
    state.wishes.resume();
    state.change_ahead();
  }
  state.wake();
}

draw::FrameImage Session::floats(int64_t version, const std::string& node, int64_t frame,
                                 const GiveUp& give_up, draw::Area area) {
  const std::shared_ptr<State> state = state_;
  Subject subject;
  KeptImages::Key key;
  {
    const std::lock_guard lock(state->mutex);
    const int64_t number = version == 0 ? state->newest : version;
    subject = subject_of(state->composition(number), number, node);
    key = {subject.version, subject.node, frame, area};
    if (const auto kept = state->kept.find(key); kept && !state->look_anew) return *kept;
  }
  const auto image = std::make_shared<draw::FrameImage>();
  const auto step = [state, subject, key, image](Device& device) {
    render::Viewing& viewing = device.of(subject.composition);
    const draw::ImageRequest request = full_size(key.node, key.area, state->stop);
    bool paused = false;
    {
      const std::lock_guard lock(state->mutex);
      paused = state->paused;
    }
    refuse_while_paused(paused && !viewing.cached(viewing.key(request, key.frame)));
    *image = viewing.read(request, key.frame);
    const std::lock_guard lock(state->mutex);
    state->kept.add(key, *image);
    return false;
  };
  state->answer(step, give_up);
  return *image;
}

Found Session::find(Kind kind, int64_t version, const std::string& node, int64_t frame,
                    const GiveUp& give_up) {
  const std::shared_ptr<State> state = state_;
  Subject subject;
  {
    const std::lock_guard lock(state->mutex);
    const int64_t number = version == 0 ? state->newest : version;
    subject = subject_of(state->composition(number), number, node);
    refuse_while_paused(state->paused);
  }
  const auto search = std::make_shared<std::optional<Search>>();
  const auto step = [=](Device& device) {
    render::Viewing& viewing = device.of(subject.composition);
    if (!*search) {
      const auto request = full_size(subject.node, draw::Area::format, state->stop);
      search->emplace(kind, *subject.composition, viewing.graph(request, frame));
    }
    return (*search)->step([&](int at, int64_t when, draw::Area area) {
      return viewing.read(full_size(at, area, state->stop), when);
    });
  };
  state->answer(step, give_up);
  return (*search)->found();
}

std::string Session::trace(double seconds) const {
  const auto back = std::chrono::duration_cast<Spans::Clock::duration>(
      std::chrono::duration<double>(std::clamp(seconds, 0.0, 3600.0)));
  const auto from = Spans::Clock::now() - back;
  auto spans = state_->spans->since(from);
  for (Spans::Span& span : spans)
    span.begin = std::max(span.begin, from);  // what went on at that time, from then on
  return chrome_trace(std::move(spans));
}

Spans& Session::spans() {
  return *state_->spans;
}

draw::Stats Session::stats() {
  draw::Stats stats;
  state_->thread->run([&] {
    if (render::Renderer* const renderer = state_->device.renderer()) stats = renderer->stats();
  });
  return stats;
}

bool Session::idle() const {
  const std::lock_guard lock(state_->mutex);
  return !state_->posted && !state_->working && state_->wishes.on_their_way() == 0 && state_->outbox.empty();
}

}  // namespace host::live::session
