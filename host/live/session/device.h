#pragma once

#include "host/gpu/gpu_thread.h"
#include "host/render/renderer.h"
#include "host/render/viewing.h"

#include <memory>
#include <utility>

namespace host::live::session {

// The renderer of a session. On the thread for drawing alone.
class Device {
 public:
  using CompositionPtr = render::Renderer::CompositionPtr;

  Device(render::RendererOptions options, std::shared_ptr<gpu::GpuThread> thread)
      : options_(std::move(options)), thread_(std::move(thread)) {}

  // Opens what there is not yet and takes the composition over. Throws NoGpu and ShaderError.
  render::Viewing& of(const CompositionPtr& composition);

  // What there is; null before the first composition.
  render::Viewing* viewing() {
    return viewing_.get();
  }
  render::Renderer* renderer() {
    return renderer_.get();
  }

  // Whether the driver has let go of everything.
  bool lost() const {
    return renderer_ && thread_->context().lost();
  }

  // Waits for what is on its way and gives everything back.
  void close();

  // The same, with the context; what comes next opens another.
  void drop();

 private:
  const render::RendererOptions options_;
  const std::shared_ptr<gpu::GpuThread> thread_;
  std::unique_ptr<render::Renderer> renderer_;
  std::unique_ptr<render::Viewing> viewing_;
  CompositionPtr last_;
};

}  // namespace host::live::session
