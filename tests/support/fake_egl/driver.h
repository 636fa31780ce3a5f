#pragma once

#include "tests/support/fake_egl/fake_egl.h"

#include <algorithm>
#include <initializer_list>
#include <sstream>
#include <type_traits>
#include <utility>

// In tests/support/allocations.cpp, where a program links that.
extern "C" [[gnu::weak]] void support_spare_allocations(bool spare);

// What the files of the fake driver build their entry points from.
namespace fake_egl {

using Proc = void (*)();

template <class Function>
std::pair<const char*, Proc> entry(const char* name, Function* function) {
  return {name, reinterpret_cast<Proc>(function)};
}

// One static object a file: adds its entry points to what eglGetProcAddress finds.
struct Provide {
  Provide(std::initializer_list<std::pair<const char*, Proc>> entries);
};

// In an entry point that allocates: what a test lets fail are not the driver's allocations.
struct Spared {
  Spared() {
    if (support_spare_allocations) support_spare_allocations(true);
  }
  ~Spared() {
    if (support_spare_allocations) support_spare_allocations(false);
  }
};

// Names and deletes objects of the current context; object() is null for what is not alive there.
void generate(const char* kind, int count, unsigned* names);
void destroy(const char* kind, int count, const unsigned* names);
Object* object(const char* kind, unsigned name);
void complain(const std::string& text);

void append(const std::string& call);

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
  append(out.str());
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

}  // namespace fake_egl
