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
  log("glMapBufferRange", target, static_cast<int>(offset), static_cast<int>(bytes >> 20), access);
  const std::lock_guard lock(mutex);
  buffers[bound].resize(static_cast<size_t>(bytes) / sizeof(float));
  return next_map() ? buffers[bound].data() : nullptr;
}

void read_pixels(int x, int y, int w, int h, unsigned format, unsigned type, void* offset) {
  const Spared spared;
  const size_t first = reinterpret_cast<size_t>(offset) / sizeof(float);
  log("glReadPixels", x, y, w, h, format, type, static_cast<int>(first));
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
  log("eglClientWaitSyncKHR", flags,
      nanoseconds == UINT64_MAX ? -1 : static_cast<int>(nanoseconds / 1'000'000));
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

const Provide provide{
    entry(
        "glGenBuffers",
        +[](int n, unsigned* names) { log("glGenBuffers", n), generate("buffer", n, names); }),
    entry(
        "glBindBuffer", +[](unsigned target, unsigned name) { log("glBindBuffer", target, bound = name); }),
    entry(
        "glBufferStorage",
        +[](unsigned target, ptrdiff_t bytes, const void* data, unsigned flags) {
          log("glBufferStorage", target, static_cast<int>(bytes >> 20), data, flags);
        }),
    entry("glMapBufferRange", map_buffer),
    entry(
        "glUnmapBuffer", +[](unsigned target) { return log("glUnmapBuffer", target), uint8_t{1}; }),
    entry(
        "glDeleteBuffers",
        +[](int n, const unsigned* names) {
          log("glDeleteBuffers", n, *names), destroy("buffer", n, names);
          const std::lock_guard lock(mutex);
          buffers.erase(*names);
        }),
    entry(
        "glReadBuffer", +[](unsigned source) { log("glReadBuffer", source); }),
    entry("glReadPixels", read_pixels),
    entry(
        "glFlush", +[] { log("glFlush"); }),
    entry(
        "eglGetCurrentDisplay", +[]() -> void* { return &syncs; }),
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
