#include "host/live/session/state.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace host::live::session {
namespace {

constexpr size_t most_spans = 8192;

render::RendererOptions with_spans(render::RendererOptions options, const std::shared_ptr<Spans>& spans) {
  options.spans = spans;
  if (!options.headers) options.headers = std::make_shared<plates::Headers>();
  return options;
}

uint64_t bytes_of(const draw::FrameImage& image) {
  return uint64_t{16} * static_cast<uint64_t>(box_width(image.area)) *
         static_cast<uint64_t>(box_height(image.area));
}

}  // namespace

std::optional<draw::FrameImage> KeptImages::find(const Key& key) {
  const auto at =
      std::find_if(images_.begin(), images_.end(), [&key](const auto& each) { return each.first == key; });
  if (at == images_.end()) return std::nullopt;
  images_.splice(images_.begin(), images_, at);
  return at->second;
}

void KeptImages::add(const Key& key, draw::FrameImage image) {
  constexpr size_t most = 4;
  if (find(key)) return;
  images_.emplace_front(key, std::move(image));
  uint64_t bytes = 0;
  for (const auto& [each, kept] : images_) bytes += bytes_of(kept);
  while (images_.size() > 1 && (images_.size() > most || bytes > most_bytes_)) {
    bytes -= bytes_of(images_.back().second);
    images_.pop_back();
  }
}

Session::State::State(const render::RendererOptions& asked, std::shared_ptr<gpu::GpuThread> drawing,
                      Listener& told)
    : spans(std::make_shared<Spans>(most_spans)),
      options(with_spans(asked, spans)),
      thread(std::move(drawing)),
      listener(told),
      kept(asked.memory / 8),
      device(options, thread) {}

Session::CompositionPtr Session::State::composition(int64_t version) const {
  const auto known = versions.find(version);
  return known == versions.end() ? nullptr : known->second;
}

void Session::State::wake() {
  if (posted || closing) return;
  posted = true;
  post();
}

void Session::State::post() {
  thread->post([self = shared_from_this()] { self->work(); });
}

void Session::State::nudge() {
  if ((hand == Hand::question || hand == Hand::ahead) && wishes.pending()) stop = true;
  if (hand == Hand::ahead && !questions.empty()) stop = true;
}

void Session::State::answer(const std::function<bool(Device&)>& step, const GiveUp& give_up) {
  const auto question = std::make_shared<Question>();
  question->step = step;
  std::unique_lock lock(mutex);
  if (closing) throw frame::Interrupted();
  questions.push_back(question);
  nudge();
  wake();
  while (!changed.wait_for(lock, std::chrono::milliseconds(50), [&] { return question->over; })) {
    if (!give_up) continue;
    lock.unlock();
    const bool ends = give_up();
    lock.lock();
    if (!ends || question->over) continue;
    // Who steps it at the moment shares all that it needs.
    question->over = true;
    std::erase(questions, question);
    if (in_hand == question) stop = true;
    throw frame::Interrupted();
  }
  lock.unlock();
  if (question->error) std::rethrow_exception(question->error);
}

}  // namespace host::live::session
