#include "tests/support/fake_egl/driver.h"

#include <algorithm>
#include <functional>
#include <map>
#include <mutex>
#include <set>

namespace fake_egl {

namespace {

struct Said {
  std::map<unsigned, Object> objects;
  std::set<std::string, std::less<>> hidden;
  std::vector<std::string> calls;
  std::vector<std::string> misuse;
  unsigned last_name = 0;
  int failing_object = 0;
  int calls_to_switch = 0;
  void* switched_context = nullptr;
};
struct State : Said {
  std::mutex mutex;
};

State& state() {
  static State instance;
  return instance;
}

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
  State& s = state();
  const std::lock_guard lock(s.mutex);
  static_cast<Said&>(s) = {};
  recording = true;
  current = fresh_context();
}

void make_current(void* context) {
  current = context;
}

void* fresh_context() {
  return reinterpret_cast<void*>(last_context += 16);
}

void switch_context_after(int calls, void* context) {
  const std::lock_guard lock(state().mutex);
  state().calls_to_switch = calls;
  state().switched_context = context;
}

void hide(std::string_view name) {
  const std::lock_guard lock(state().mutex);
  state().hidden.emplace(name);
}

void fail_object(int n) {
  const std::lock_guard lock(state().mutex);
  state().failing_object = n;
}

std::vector<std::string> take_calls() {
  const std::lock_guard lock(state().mutex);
  return std::exchange(state().calls, {});
}

uint64_t call_count() {
  return calls_made;
}

void record(bool on) {
  recording = on;
}

void append(const std::string& call) {
  State& s = state();
  const std::lock_guard lock(s.mutex);
  s.calls.push_back(call);
  if (s.calls_to_switch > 0 && --s.calls_to_switch == 0) current = s.switched_context;
}

void generate(const char* kind, int count, unsigned* names) {
  const Spared spared;
  State& s = state();
  const std::lock_guard lock(s.mutex);
  for (int i = 0; i < count; ++i) {
    if (s.failing_object > 0 && --s.failing_object == 0) continue;
    names[i] = ++s.last_name;
    s.objects[names[i]] = {kind, current, 0};
  }
}

Object* object(const char* kind, unsigned name) {
  State& s = state();
  const std::lock_guard lock(s.mutex);
  const auto at = s.objects.find(name);
  const bool here = at != s.objects.end() && at->second.kind == kind && at->second.context == current;
  return here ? &at->second : nullptr;
}

void destroy(const char* kind, int count, const unsigned* names) {
  const Spared spared;
  for (int i = 0; i < count; ++i) {
    if (object(kind, names[i]) == nullptr) complain("no " + (kind + (' ' + std::to_string(names[i]))));
    const std::lock_guard lock(state().mutex);
    state().objects.erase(names[i]);
  }
}

void complain(const std::string& text) {
  const std::lock_guard lock(state().mutex);
  state().misuse.push_back(text);
}

size_t alive(std::string_view kind) {
  const std::lock_guard lock(state().mutex);
  return static_cast<size_t>(std::count_if(
      state().objects.begin(), state().objects.end(),
      [&](const auto& item) { return item.second.kind == kind && item.second.context == current; }));
}

uint64_t texture_bytes() {
  const std::lock_guard lock(state().mutex);
  uint64_t sum = 0;
  for (const auto& [name, item] : state().objects) {
    if (item.kind == "texture" && item.context == current) sum += item.bytes;
  }
  return sum;
}

std::vector<std::string> misuse() {
  const std::lock_guard lock(state().mutex);
  return state().misuse;
}

}  // namespace fake_egl

extern "C" fake_egl::Proc eglGetProcAddress(const char* name) {
  const std::lock_guard lock(fake_egl::state().mutex);
  if (fake_egl::state().hidden.count(name) != 0) return nullptr;
  const auto at = fake_egl::entries().find(name);
  return at == fake_egl::entries().end() ? nullptr : at->second;
}

extern "C" void* eglGetCurrentContext() {
  return fake_egl::current;
}
