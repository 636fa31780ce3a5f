#include <qv/gpu/gl/proc_address.h>
#include <qv/transport/driver.h>

namespace qv::transport {

bool load(Driver& driver) {
  using gpu::gl::fetch;
  return fetch(driver.bind_buffer, "glBindBuffer") && fetch(driver.unmap_buffer, "glUnmapBuffer") &&
         fetch(driver.delete_buffers, "glDeleteBuffers") && fetch(driver.gen_buffers, "glGenBuffers") &&
         fetch(driver.buffer_storage, "glBufferStorage") &&
         fetch(driver.map_buffer_range, "glMapBufferRange") &&
         fetch(driver.bind_framebuffer, "glBindFramebuffer") && fetch(driver.read_buffer, "glReadBuffer") &&
         fetch(driver.read_pixels, "glReadPixels") && fetch(driver.flush, "glFlush") &&
         fetch(driver.get_current_display, "eglGetCurrentDisplay") &&
         fetch(driver.create_sync, "eglCreateSyncKHR") &&
         fetch(driver.client_wait_sync, "eglClientWaitSyncKHR") &&
         fetch(driver.destroy_sync, "eglDestroySyncKHR");
}

}  // namespace qv::transport
