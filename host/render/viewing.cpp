#include "host/render/viewing.h"

#include <qv/gpu/registry.h>
#include <qv/transport/ring.h>

#include "host/draw/upcoming.h"
#include "host/gpu/gpu_context.h"
#include "host/render/renderer_state.h"

#include <algorithm>
#include <set>
#include <utility>

namespace host::render {
namespace {

// The frames that are to come, as far as they have a graph; whoever draws one is told why it has none.
std::vector<frame::KeyedFrame> keyed_later(Subject& subject, int node, std::span<const int64_t> frames) {
  const auto most = static_cast<size_t>(subject.renderer.limits.frames_ahead);
  std::vector<frame::KeyedFrame> keyed;
  for (const int64_t frame : frames.first(std::min(frames.size(), most))) {
    try {
      keyed.push_back(subject.later_keys.frame({node}, frame));
    } catch (const frame::FrameError&) {
      continue;
    }
  }
  return keyed;
}

void want(Subject& subject, const frame::KeyedFrame& now, int distance,
          const std::vector<frame::KeyedFrame>& later) {
  std::vector<decode::Wanted> list;
  draw::add_wanted(subject.composition, subject.project, now, distance, subject.renderer.store, list);
  for (const frame::KeyedFrame& each : later)
    draw::add_wanted(subject.composition, subject.project, each, ++distance, subject.renderer.store, list);
  subject.renderer.decoder.want(list);
}

int64_t output_key(const frame::KeyedFrame& keyed) {
  return keyed.keys[static_cast<size_t>(keyed.graph.outputs[0])];
}

}  // namespace

std::vector<int64_t> Viewing::pinned(const std::string& but) const {
  std::vector<int64_t> keys;
  for (const auto& [place, shown] : places_) {
    if (place != but) keys.insert(keys.end(), shown.begin(), shown.end());
  }
  return keys;
}

uint64_t Viewing::draw(const std::string& place, const draw::ImageRequest& request, int64_t frame,
                       std::span<const int64_t> later, ShownDone done) {
  const SubjectPtr subject = renderer_.at_scale(request.scale);
  const Turn turn(renderer_, request.stop);
  const frame::KeyedFrame keyed = subject->single_keys.frame({request.node}, frame);
  want(*subject, keyed, 0, keyed_later(*subject, request.node, later));
  subject->notice(keyed);
  Taken taken;
  const draw::Manner manner{request.stop, &taken.uses, renderer_.options.spans.get(), false, pinned(place)};
  const uint64_t draws = qv::gpu::stats().draws;
  const auto images = subject->evaluator.evaluate(
      keyed, [](int64_t) { return true; }, {draw::part_of(request.area)}, manner);
  if (renderer_.gpu.lost()) throw gpu::ContextLost();
  taken.draws = static_cast<int64_t>(qv::gpu::stats().draws - draws);
  if (!place.empty()) {
    std::vector<int64_t>& keys = places_[place];
    keys.clear();
    for (const draw::NodeUse& use : taken.uses) keys.push_back(use.key);
  }
  const auto sent = [taken = std::move(taken), done = std::move(done)](draw::FrameImage image,
                                                                       const std::string& error) {
    done(std::move(image), taken, error);
  };
  return renderer_.send(*subject, request, frame, images.at(0), sent);
}

void Viewing::show(const std::string& place, const draw::ImageRequest& request, int64_t frame,
                   std::span<const int64_t> later, ShownDone done) {
  draw(place, request, frame, later, std::move(done));
}

void Viewing::leave(const std::string& place) {
  places_.erase(place);
}

draw::FrameImage Viewing::read(const draw::ImageRequest& request, int64_t frame) {
  draw::FrameImage image;
  std::string error = "out of memory";  // unless it arrives
  const auto arrived = [&](draw::FrameImage read, const Taken& /*taken*/, const std::string& why) {
    image = std::move(read);
    error = why;
  };
  qv::transport::wait(draw("", request, frame, {}, arrived));
  if (!error.empty()) throw frame::FrameError(error);
  return image;
}

bool Viewing::prepare(const draw::ImageRequest& request, int64_t frame, std::span<const int64_t> later) {
  const SubjectPtr subject = renderer_.at_scale(request.scale);
  const Turn turn(renderer_, request.stop);
  const frame::KeyedFrame keyed = subject->single_keys.frame({request.node}, frame);
  const std::vector<frame::KeyedFrame> next = keyed_later(*subject, request.node, later);
  want(*subject, keyed, 1, next);
  std::set<int64_t> kept{output_key(keyed)};
  if (!next.empty()) kept.insert(next[0].keys.begin(), next[0].keys.end());
  draw::Manner manner{request.stop, nullptr, renderer_.options.spans.get(), true};
  try {
    subject->evaluator.evaluate(
        keyed, [&kept](int64_t key) { return kept.count(key) > 0; }, {draw::part_of(request.area)}, manner);
  } catch (const draw::NoRoom&) {
    return false;
  }
  return true;
}

int64_t Viewing::key(const draw::ImageRequest& request, int64_t frame) {
  return output_key(renderer_.at_scale(request.scale)->later_keys.frame({request.node}, frame));
}

bool Viewing::cached(int64_t key) const {
  return renderer_.store.contains(key);
}

void Viewing::prefer(const std::vector<int64_t>& nearest_first, size_t kept) {
  std::vector<int64_t> keys = pinned("");
  for (size_t i = nearest_first.size(); i-- > 0;) {
    renderer_.store.prefer(nearest_first[i], i < kept);
    if (i < kept) keys.push_back(nearest_first[i]);
  }
  renderer_.store.end_touch(keys);
}

void Viewing::look_again() {
  const auto look = [](const SubjectPtr& subject) {
    if (!subject) return;
    subject->single_keys.look_again();
    subject->later_keys.look_again();
  };
  look(renderer_.subject);
  std::for_each(renderer_.scaled.begin(), renderer_.scaled.end(), look);
}

frame::FrameGraph Viewing::graph(const draw::ImageRequest& request, int64_t frame) {
  const SubjectPtr& subject = renderer_.at_scale(request.scale);
  return frame::frame_graph(subject->composition, {request.node}, frame, subject->project);
}

bool Viewing::crowded(const draw::ImageRequest& request) const {
  const Format& format = renderer_.at_scale(request.scale)->project.format;
  const Box box = format_box(format);
  return !renderer_.held.room(uint64_t{16} * static_cast<uint64_t>(box_width(box)) *
                              static_cast<uint64_t>(box_height(box)));
}

void Viewing::rest() {
  renderer_.decoder.want({});
}

uint64_t Viewing::held() const {
  return renderer_.use.now().sum();
}

}  // namespace host::render
