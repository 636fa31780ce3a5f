#include "tests/support/fake_egl/transfer.h"

#include "tests/support/fake_egl/driver.h"

#include <condition_variable>
#include <map>
#include <mutex>
#include <vector>

namespace fake_egl {
namespace {

struct Sync {
  Fence kind;
  int waits;
  unsigned buffer;
  std::function<void()> arrive;
};

std::mutex mutex;
std::condition_variable changed;
std::function<Fence()> next_fence;
std::function<bool()> next_map;
size_t reads_queued = 0, last_sync = 0;
bool released = false;
std::map<unsigned, std::vector<float>> buffers;
std::map<void*, Sync> syncs;
thread_local unsigned bound = 0;
thread_local std::function<void()> unfenced;

void* map_buffer(unsigned target, ptrdiff_t offset, ptrdiff_t bytes, unsigned access) {
  const Spared spared;
  log("glMapBufferRange", target, offset, bytes, access);
  const std::lock_guard lock(mutex);
  buffers[bound].resize(static_cast<size_t>(bytes) / sizeof(float));
  return next_map() ? buffers[bound].data() : nullptr;
}

void read_pixels(int x, int y, int w, int h, unsigned format, unsigned type, void* offset) {
  const Spared spared;
  const size_t first = reinterpret_cast<size_t>(offset) / sizeof(float);
  log("glReadPixels", x, y, w, h, format, type, first);
  const std::lock_guard lock(mutex);
  for (const auto& [handle, sync] : syncs) {
    if (first == 0 && sync.buffer == bound) complain("read into a buffer in flight");
  }
  const int channels = format == 0x1908 ? 4 : 2;
  if (buffers[bound].size() < first + static_cast<size_t>(w * h * channels))
    return complain("read beyond a buffer");
  unfenced = [=, out = buffers[bound].data() + first] {
    for (int k = 0; k < w * h * channels; ++k)
      out[k] = pixel(x + k / channels % w, y + k / channels / w, k % channels);
  };
  ++reads_queued;
  changed.notify_all();
}

void* create_sync(void* display, unsigned type, const int* attributes) {
  const Spared spared;
  log("eglCreateSyncKHR", type, attributes);
  const std::lock_guard lock(mutex);
  const Fence kind = next_fence();
  if (display != &syncs) complain("fence on no display");
  if (kind == Fence::refused) return nullptr;
  void* const handle = reinterpret_cast<void*>(++last_sync);
  syncs[handle] = {kind, 0, bound, unfenced};
  return handle;
}

int wait_sync(void*, void* handle, int flags, uint64_t nanoseconds) {
  log("eglClientWaitSyncKHR", flags, nanoseconds);
  std::unique_lock lock(mutex);
  Sync& sync = syncs.at(handle);
  if (sync.kind == Fence::broken) return 0;
  changed.wait(lock, [&] { return sync.kind != Fence::held || released; });
  const bool early = sync.kind == Fence::silent || (sync.kind == Fence::late && ++sync.waits < 4);
  if (early && nanoseconds != UINT64_MAX) return 0x30F5;
  sync.arrive();
  return 0x30F6;
}

unsigned destroy_sync(void*, void* handle) {
  log("eglDestroySyncKHR");
  const std::lock_guard lock(mutex);
  if (syncs.erase(handle) == 0) complain("end of no fence");
  return 1;
}

void bind_buffer(unsigned target, unsigned name) {
  log("glBindBuffer", target, bound = name);
}

uint8_t unmap_buffer(unsigned target) {
  log("glUnmapBuffer", target);
  return 1;
}

void delete_buffer(int count, const unsigned* name) {
  deleted<"glDeleteBuffers", "buffer">(count, name);
  const std::lock_guard lock(mutex);
  buffers.erase(*name);
}

void* current_display() {
  return &syncs;
}

const Provide provide{
    entry("glGenBuffers", named<"glGenBuffers", "buffer">),
    entry("glBindBuffer", bind_buffer),
    entry("glBufferStorage", logged<"glBufferStorage", unsigned, ptrdiff_t, const void*, unsigned>),
    entry("glMapBufferRange", map_buffer),
    entry("glUnmapBuffer", unmap_buffer),
    entry("glDeleteBuffers", delete_buffer),
    entry("glReadBuffer", logged<"glReadBuffer", unsigned>),
    entry("glReadPixels", read_pixels),
    entry("glFlush", logged<"glFlush">),
    entry("eglGetCurrentDisplay", current_display),
    entry("eglCreateSyncKHR", create_sync),
    entry("eglClientWaitSyncKHR", wait_sync),
    entry("eglDestroySyncKHR", destroy_sync),
};

}  // namespace

void plan_transfers(std::function<Fence()> fence, std::function<bool()> map) {
  const std::lock_guard lock(mutex);
  next_fence = std::move(fence);
  next_map = std::move(map);
  reads_queued = 0;
  released = false;
}

void release() {
  const std::lock_guard lock(mutex);
  released = true;
  changed.notify_all();
}

void await_reads(size_t count) {
  std::unique_lock lock(mutex);
  changed.wait(lock, [count] { return reads_queued >= count; });
}

size_t fences_alive() {
  const std::lock_guard lock(mutex);
  return syncs.size();
}

float pixel(int x, int y, int channel) {
  return static_cast<float>((y * 4099 + x * 7 + channel + 1) & 0xffffff);
}

}  // namespace fake_egl
