#pragma once

namespace qv::gpu::gl {

// A GL or EGL function as eglGetProcAddress hands it out; cast to its own type before the call.
using Proc = void (*)();

// Whether libEGL.so.1 could be opened with all that this library needs of it. Thread-safe.
bool has_egl();

// The function of this name (NUL-terminated), null when the driver does not know it or there is no
// EGL. Drivers may hand out functions that work under the current context only. Thread-safe.
Proc proc_address(const char* name);

// Fetches `name` into a function pointer of any type; false, and a null pointer, when it is missing.
template <class Function>
bool fetch(Function*& entry, const char* name) {
  entry = reinterpret_cast<Function*>(proc_address(name));
  return entry != nullptr;
}

}  // namespace qv::gpu::gl
