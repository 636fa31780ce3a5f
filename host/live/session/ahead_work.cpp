#include "host/live/session/ahead_work.h"

#include "host/frame/frame_error.h"

#include <algorithm>
#include <chrono>
#include <span>

namespace host::live::session {
namespace {

// How long keys of frames are worked out before others have their turn.
constexpr std::chrono::milliseconds slice{4};

constexpr size_t most_later = 16;  // of which the renderer decodes as many as it does of any frames

}  // namespace

void AheadWork::take_over(const Subject& subject) {
  const Ahead& next = subject.ahead;
  const Ahead& last = subject_.ahead;
  const bool same_images =
      subject.version == subject_.version && next.node == last.node && next.scale == last.scale;
  const bool same_range = next.first == last.first && next.last == last.last;
  if (!same_images) {
    timeline_ = Timeline(next.first, next.last, next.frame, next.direction);
  } else if (!same_range || next.frame != last.frame || next.direction != last.direction) {
    timeline_.move(next.first, next.last, next.frame, next.direction);
  }
  if (!same_images || !same_range) told_ = false;
  subject_ = subject;
}

void AheadWork::look(render::Viewing& viewing, const draw::ImageRequest& request) {
  const auto until = std::chrono::steady_clock::now() + slice;
  for (auto frame = timeline_.unknown(); frame; frame = timeline_.unknown()) {
    try {
      timeline_.learn(*frame, viewing.key(request, *frame));
    } catch (const frame::FrameError&) {
      timeline_.learn(*frame, std::nullopt);
    }
    if (std::chrono::steady_clock::now() >= until || (request.stop && *request.stop)) return;
  }
}

bool AheadWork::step(render::Viewing& viewing, const draw::ImageRequest& request, const Subject& subject) {
  take_over(subject);
  look(viewing, request);
  const auto stored = [&viewing](int64_t key) { return viewing.cached(key); };
  const auto place = timeline_.missing(stored);
  const bool all_known = !timeline_.unknown();
  if (!place || full_) return !all_known;
  viewing.prefer(timeline_.keys(), timeline_.keys_before(*place));
  const std::vector<int64_t>& order = timeline_.order();
  const int64_t frame = order[*place];
  const std::span<const int64_t> later = std::span(order).subspan(*place + 1);
  try {
    full_ = !viewing.prepare(request, frame, later.first(std::min(later.size(), most_later)));
  } catch (const frame::FrameError&) {
    timeline_.learn(frame, std::nullopt);
  }
  return !full_ || !all_known;
}

std::optional<std::vector<std::pair<int64_t, int64_t>>> AheadWork::news(const render::Viewing& viewing) {
  if (subject_.version == 0) return std::nullopt;
  auto runs = timeline_.runs([&viewing](int64_t key) { return viewing.cached(key); });
  if (told_ && runs == last_told_) return std::nullopt;
  told_ = true;
  last_told_ = runs;
  return runs;
}

}  // namespace host::live::session
