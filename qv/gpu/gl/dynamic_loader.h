#pragma once

// dlopen and dlsym of the platform. Where there is no dynamic loader of that shape the library
// brings its own pair, which finds nothing: it then links, and GPU work reports that EGL is missing.
#if defined(_WIN32)

inline constexpr int RTLD_LAZY = 1;
inline constexpr int RTLD_LOCAL = 0;

extern "C" void* dlopen(const char* file, int mode);
extern "C" void* dlsym(void* handle, const char* symbol);

#else

#include <dlfcn.h>

#endif
