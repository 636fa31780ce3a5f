#include "host/live/session/device.h"

#include <qv/transport/ring.h>

namespace host::live::session {

render::Viewing& Device::of(const CompositionPtr& composition) {
  if (!renderer_) {
    renderer_ = std::make_unique<render::Renderer>(composition, options_, thread_->context());
    viewing_ = renderer_->viewing();
  } else if (composition != last_) {
    renderer_->replace(composition);
  }
  last_ = composition;
  return *viewing_;
}

void Device::close() {
  // The ring may be others' as well, and goes on then.
  if (renderer_) qv::transport::wait_all();
  viewing_.reset();
  renderer_.reset();
  last_.reset();
}

void Device::drop() {
  close();
  thread_->close_context();
}

}  // namespace host::live::session
