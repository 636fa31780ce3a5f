#pragma once

#include "host/draw/frame_image.h"
#include "host/gpu/gpu_thread.h"

#include <memory>
#include <optional>

namespace host::service {

// Images of one frame after another, drawn and read back before they are asked for: up to two, as far as the
// memory budget has room beside what is held. Made by SharedRenderer::stream. Destruction ends what is under
// way. Externally synchronised.
class FrameStream {
 public:
  struct State;
  explicit FrameStream(std::shared_ptr<State> state);
  ~FrameStream();
  FrameStream(const FrameStream&) = delete;
  FrameStream& operator=(const FrameStream&) = delete;

  // The next frame's image; nothing when all have come. Throws what Renderer::read throws of that frame,
  // after which no other comes; Interrupted once `give_up`, which is asked every 50 ms and may be empty, says
  // so.
  std::optional<draw::FrameImage> next(const gpu::GpuThread::GiveUp& give_up);

 private:
  std::shared_ptr<State> state_;
};

}  // namespace host::service
