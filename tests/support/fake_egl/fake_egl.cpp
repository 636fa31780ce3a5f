#include "tests/support/fake_egl/fake_egl.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <span>
#include <sstream>
#include <type_traits>
#include <utility>

// In tests/support/allocations.cpp, where a program links that.
extern "C" [[gnu::weak]] void support_spare_allocations(bool spare);

namespace fake_egl {

Driver driver;

namespace {

std::mutex mutex;  // of the driver
std::atomic<uintptr_t> last_context{0};
thread_local void* current = nullptr;

// In an entry point that allocates: what a test lets fail are not the driver's allocations.
struct Spared {
  Spared() {
    if (support_spare_allocations) support_spare_allocations(true);
  }
  ~Spared() {
    if (support_spare_allocations) support_spare_allocations(false);
  }
};

void complain(const std::string& text) {
  const std::lock_guard lock(mutex);
  driver.misuse.push_back(text);
}

// Names and deletes objects of the current context; object() is null for what is not alive there.
void generate(const char* kind, int count, unsigned* names) {
  const Spared spared;
  const std::lock_guard lock(mutex);
  for (int i = 0; i < count; ++i) {
    if (driver.failing_object > 0 && --driver.failing_object == 0) continue;
    names[i] = ++driver.last_name;
    driver.objects[names[i]] = {kind, current, 0};
  }
}

Object* object(const char* kind, unsigned name) {
  const std::lock_guard lock(mutex);
  const auto at = driver.objects.find(name);
  const bool here = at != driver.objects.end() && at->second.kind == kind && at->second.context == current;
  return here ? &at->second : nullptr;
}

void destroy(const char* kind, int count, const unsigned* names) {
  const Spared spared;
  for (int i = 0; i < count; ++i) {
    if (object(kind, names[i]) == nullptr) complain("no " + (kind + (' ' + std::to_string(names[i]))));
    const std::lock_guard lock(mutex);
    driver.objects.erase(names[i]);
  }
}

template <class T>
void print(std::ostream& out, T value) {
  if constexpr (std::is_pointer_v<T>) {
    out << (value ? "data" : "null");
  } else if constexpr (requires { value.size(); }) {
    for (size_t i = 0; i < value.size(); ++i) print(out << (i == 0 ? '[' : ' '), value[i]);
    out << ']';
  } else {
    const bool as_hex = std::is_same_v<T, unsigned> && value >= T{0x400};
    out << std::showbase << (as_hex ? std::hex : std::dec) << value;
  }
}

// Writes a call down; every entry point starts with it. Benchmarks draw through here, so that what does not
// record costs a load.
template <class... Arguments>
void log(const char* name, Arguments... arguments) {
  if (!recording.load(std::memory_order_relaxed)) return;
  std::ostringstream out;
  out << name;
  (void(print(out << ' ', arguments)), ...);
  const std::lock_guard lock(mutex);
  driver.calls.push_back(out.str());
  if (driver.calls_to_switch > 0 && --driver.calls_to_switch == 0) current = driver.switched_context;
}

// Entry points that do nothing else, logged<"glViewport", int, int, int, int>, and that name or delete
// objects.
template <size_t length>
struct Name {
  constexpr Name(const char (&text)[length]) {
    std::copy_n(text, length, value);
  }
  char value[length];
};
template <Name name, class... Arguments>
void logged(Arguments... arguments) {
  log(name.value, arguments...);
}
template <Name name, Name kind>
void named(int count, unsigned* names) {
  log(name.value, count);
  generate(kind.value, count, names);
}
template <Name name, Name kind>
void deleted(int count, const unsigned* names) {
  log(name.value, count, names);
  destroy(kind.value, count, names);
}

constexpr int largest_size = 65536;

// What is bound under the current context; enough of GL to know which texture an image belongs to.
thread_local unsigned bound_texture = 0;
thread_local unsigned bound_framebuffer = 0;

void BindFramebuffer(unsigned target, unsigned name) {
  log("glBindFramebuffer", target, name);
  bound_framebuffer = name;
}
void BindTexture(unsigned target, unsigned name) {
  log("glBindTexture", target, name);
  bound_texture = name;
}
template <Name name, size_t floats>
void uniform(unsigned program, int location, int count, const float* values) {
  log(name.value, program, location, count, std::span(values, floats));
}
template <Name name, size_t floats>
void matrix(unsigned program, int location, int count, unsigned char transpose, const float* values) {
  log(name.value, program, location, count, int{transpose}, std::span(values, floats));
}
unsigned GetError() {
  log("glGetError");
  return 0;
}

void TexImage2D(unsigned target, int level, int format, int w, int h, int border, unsigned pixel_format,
                unsigned type, const void* pixels) {
  log("glTexImage2D", target, level, static_cast<unsigned>(format), w, h, border, pixel_format, type, pixels);
  Object* const texture = object("texture", bound_texture);
  if (texture == nullptr) return complain("image of no texture");
  if (std::max(w, h) > largest_size) return complain("image larger than any texture");
  texture->bytes = static_cast<uint64_t>(w) * static_cast<uint64_t>(h) * 16;
}
void FramebufferTexture2D(unsigned target, unsigned attachment, unsigned texture_target, unsigned texture,
                          int level) {
  log("glFramebufferTexture2D", target, attachment, texture_target, texture, level);
  if (object("framebuffer", bound_framebuffer) == nullptr) complain("attachment to no framebuffer");
  if (object("texture", texture) == nullptr) complain("attachment of no texture");
}

// The fences and pixel-pack buffers.
struct Sync {
  Fence kind;
  int waits;
  unsigned buffer;
  std::function<void()> arrive;
};

std::mutex transfers;
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
  const std::lock_guard lock(transfers);
  buffers[bound].resize(static_cast<size_t>(bytes) / sizeof(float));
  return next_map() ? buffers[bound].data() : nullptr;
}

void read_pixels(int x, int y, int w, int h, unsigned format, unsigned type, void* offset) {
  const Spared spared;
  const size_t first = reinterpret_cast<size_t>(offset) / sizeof(float);
  log("glReadPixels", x, y, w, h, format, type, first);
  const std::lock_guard lock(transfers);
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
  const std::lock_guard lock(transfers);
  const Fence kind = next_fence();
  if (display != &syncs) complain("fence on no display");
  if (kind == Fence::refused) return nullptr;
  void* const handle = reinterpret_cast<void*>(++last_sync);
  syncs[handle] = {kind, 0, bound, unfenced};
  return handle;
}

int wait_sync(void*, void* handle, int flags, uint64_t nanoseconds) {
  log("eglClientWaitSyncKHR", flags, nanoseconds);
  std::unique_lock lock(transfers);
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
  const std::lock_guard lock(transfers);
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
  const std::lock_guard lock(transfers);
  buffers.erase(*name);
}

void* current_display() {
  return &syncs;
}

using Proc = void (*)();

template <class Function>
std::pair<const std::string_view, Proc> entry(const char* name, Function* function) {
  return {name, reinterpret_cast<Proc>(function)};
}

const std::map<std::string_view, Proc> entries = {
    entry("glBindFramebuffer", BindFramebuffer),
    entry("glViewport", logged<"glViewport", int, int, int, int>),
    entry("glScissor", logged<"glScissor", int, int, int, int>),
    entry("glUseProgram", logged<"glUseProgram", unsigned>),
    entry("glActiveTexture", logged<"glActiveTexture", unsigned>),
    entry("glBindTexture", BindTexture),
    entry("glBindSampler", logged<"glBindSampler", unsigned, unsigned>),
    entry("glBindVertexArray", logged<"glBindVertexArray", unsigned>),
    entry("glDrawElementsInstancedBaseInstance",
          logged<"glDrawElementsInstancedBaseInstance", unsigned, int, unsigned, const void*, int, unsigned>),
    entry("glProgramUniform1fv", uniform<"glProgramUniform1fv", 1>),
    entry("glProgramUniform2fv", uniform<"glProgramUniform2fv", 2>),
    entry("glProgramUniform3fv", uniform<"glProgramUniform3fv", 3>),
    entry("glProgramUniform4fv", uniform<"glProgramUniform4fv", 4>),
    entry("glProgramUniformMatrix3fv", matrix<"glProgramUniformMatrix3fv", 9>),
    entry("glProgramUniformMatrix4fv", matrix<"glProgramUniformMatrix4fv", 16>),
    entry("glGetError", GetError),
    entry("glGenTextures", named<"glGenTextures", "texture">),
    entry("glDeleteTextures", deleted<"glDeleteTextures", "texture">),
    entry("glTexImage2D", TexImage2D),
    entry("glTexParameteri", logged<"glTexParameteri", unsigned, unsigned, int>),
    entry("glGenFramebuffers", named<"glGenFramebuffers", "framebuffer">),
    entry("glDeleteFramebuffers", deleted<"glDeleteFramebuffers", "framebuffer">),
    entry("glFramebufferTexture2D", FramebufferTexture2D),
    entry("glDrawBuffers", logged<"glDrawBuffers", int, const unsigned*>),
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

void reset() {
  driver = {};
  recording = true;
  current = fresh_context();
}

void make_current(void* context) {
  current = context;
}

void* fresh_context() {
  return reinterpret_cast<void*>(last_context += 16);
}

std::vector<std::string> take_calls() {
  return std::exchange(driver.calls, {});
}

Alive alive(std::string_view kind) {
  Alive result;
  for (const auto& [name, item] : driver.objects) {
    if (item.kind != kind || item.context != current) continue;
    ++result.count;
    result.bytes += item.bytes;
  }
  return result;
}

void plan_transfers(std::function<Fence()> fence, std::function<bool()> map) {
  const std::lock_guard lock(transfers);
  next_fence = std::move(fence);
  next_map = std::move(map);
  reads_queued = 0;
  released = false;
}

void release() {
  const std::lock_guard lock(transfers);
  released = true;
  changed.notify_all();
}

void await_reads(size_t count) {
  std::unique_lock lock(transfers);
  changed.wait(lock, [count] { return reads_queued >= count; });
}

size_t fences_alive() {
  const std::lock_guard lock(transfers);
  return syncs.size();
}

float pixel(int x, int y, int channel) {
  return static_cast<float>((y * 4099 + x * 7 + channel + 1) & 0xffffff);
}

}  // namespace fake_egl

extern "C" fake_egl::Proc eglGetProcAddress(const char* name) {
  const auto at = fake_egl::entries.find(name);
  return at == fake_egl::entries.end() || fake_egl::driver.hidden.contains(name) ? nullptr : at->second;
}

extern "C" void* eglGetCurrentContext() {
  return fake_egl::current;
}
