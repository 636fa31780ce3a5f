#pragma once

#include "host/render/image_sequence.h"
#include "host/service/shared_renderer.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace host::service {

struct SharedRenderer::State {
  State(render::RendererOptions asked, std::shared_ptr<gpu::GpuThread> drawing)
      : options(std::move(asked)), thread_(std::move(drawing)) {}

  const render::RendererOptions options;

  // Throws Closed.
  std::shared_ptr<gpu::GpuThread> thread();

  // A flag that closing raises, for as long as it is added. Throws as thread().
  void add_stop(std::atomic<bool>& stop);
  void remove_stop(std::atomic<bool>& stop);

  // Lets nothing new begin, and ends what is under way; the thread, null when it was closed before.
  std::shared_ptr<gpu::GpuThread> begin_close();

  std::vector<draw::HeldImage> held();
  std::vector<std::string> take_notices();

  // What follows is of the thread alone.

  // Puts aside what the renderer has noticed.
  void keep_notices();

  // The renderer, with this composition taken over.
  render::Renderer& renderer_of(const CompositionPtr& composition);
  void end();

  std::unique_ptr<render::Renderer> renderer;  // null until there is something to draw, and once it is closed
  std::set<std::shared_ptr<FrameStream::State>> streams;

 private:
  std::mutex mutex_;  // guards what follows, up to the notices
  std::shared_ptr<gpu::GpuThread> thread_;
  std::set<std::atomic<bool>*> stops_;
  std::optional<draw::HeldImages> held_;
  std::vector<std::string> notices_;
  CompositionPtr last_;
};

// What a stream's owner and the ring's thread share: the images that have been drawn, in order.
struct Arrivals {
  struct Slot {
    bool over = false;
    draw::FrameImage image;
    std::exception_ptr error;
  };
  std::mutex mutex;  // guards all
  std::condition_variable changed;
  std::deque<std::shared_ptr<Slot>> slots;
  bool drawing = false;      // a frame, or about to
  bool all = false;          // no other slot will come
  uint64_t image_bytes = 0;  // of the last image
};

struct FrameStream::State : std::enable_shared_from_this<FrameStream::State> {
  State(std::shared_ptr<SharedRenderer::State> of, render::Renderer::CompositionPtr shot,
        const draw::ImageRequest& wanted, std::vector<int64_t> list)
      : renderer(std::move(of)), composition(std::move(shot)), request(wanted), frames(std::move(list)) {
    request.stop = &stop;
  }

  // Queues a frame if one is to be drawn. Called with the arrivals' mutex.
  void draw_on();

  // On the thread.
  void draw_one();
  void end(const std::exception_ptr& why);

  const std::shared_ptr<SharedRenderer::State> renderer;
  const render::Renderer::CompositionPtr composition;
  draw::ImageRequest request;
  const std::vector<int64_t> frames;
  std::atomic<bool> stop = false;
  const std::shared_ptr<Arrivals> arrivals = std::make_shared<Arrivals>();
  std::unique_ptr<render::ImageSequence>
      sequence;  // of the thread alone; null until it draws, and at the end
};

}  // namespace host::service
