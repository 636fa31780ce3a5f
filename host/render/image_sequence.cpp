#include "host/render/image_sequence.h"

#include "host/render/renderer_state.h"

#include <utility>

namespace host::render {

ImageSequence::ImageSequence(SubjectPtr subject, const draw::ImageRequest& request,
                             std::vector<int64_t> frames)
    : subject_(std::move(subject)),
      request_(request),
      keys_(subject_->composition, subject_->project),
      upcoming_(subject_->composition, subject_->project, keys_, {request.node}, std::move(frames),
                subject_->renderer.limits.frames_ahead) {}

ImageSequence::~ImageSequence() {
  subject_->renderer.visited_before += keys_.visited();
}

bool ImageSequence::draw_next(draw::ImageDone done) {
  Renderer::State& renderer = subject_->renderer;
  draw::Upcoming frame;
  if (!upcoming_.next(frame)) return false;
  if (frame.error) throw frame::FrameError(*frame.error);
  const Turn turn(renderer, request_.stop);
  renderer.decoder.want(upcoming_.wanted(frame, renderer.store));
  subject_->notice(frame.keyed);
  const auto images = subject_->evaluator.evaluate(
      frame.keyed, [this](int64_t key) { return upcoming_.asks_for(key); }, {draw::part_of(request_.area)},
      draw::Manner{request_.stop});
  renderer.send(*subject_, request_, frame.frame, images.at(0), std::move(done));
  return true;
}

}  // namespace host::render
