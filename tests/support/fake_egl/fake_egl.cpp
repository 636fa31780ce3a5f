#include "tests/support/fake_egl/driver.h"

#include <mutex>
#include <utility>

namespace fake_egl {

Driver driver;

namespace {

std::mutex mutex;  // of the driver

std::map<std::string_view, Proc>& entries() {
  static std::map<std::string_view, Proc> map;
  return map;
}

std::atomic<uintptr_t> last_context{0};
thread_local void* current = nullptr;

}  // namespace

Provide::Provide(std::initializer_list<std::pair<const char*, Proc>> added) {
  for (const auto& [name, proc] : added) entries()[name] = proc;
}

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

void append(const std::string& call) {
  const std::lock_guard lock(mutex);
  driver.calls.push_back(call);
  if (driver.calls_to_switch > 0 && --driver.calls_to_switch == 0) current = driver.switched_context;
}

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

void complain(const std::string& text) {
  const std::lock_guard lock(mutex);
  driver.misuse.push_back(text);
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

}  // namespace fake_egl

extern "C" fake_egl::Proc eglGetProcAddress(const char* name) {
  const auto at = fake_egl::entries().find(name);
  return at == fake_egl::entries().end() || fake_egl::driver.hidden.contains(name) ? nullptr : at->second;
}

extern "C" void* eglGetCurrentContext() {
  return fake_egl::current;
}
