#pragma once

// Marks a declaration as part of the library's binary interface. Everything else is hidden.
#if defined(_WIN32)
#define QV_API __declspec(dllexport)
#else
#define QV_API __attribute__((visibility("default")))
#endif
