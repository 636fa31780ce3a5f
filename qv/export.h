#pragma once

// Marks a declaration as part of the library's binary interface. Everything else is hidden. On Windows
// data is reached only where its users see it as imported, so only the library's own sources, compiled
// with QV_BUILDING, export it. A static library has neither: compile it and its users with QV_STATIC.
#if !defined(_WIN32)
#define QV_API __attribute__((visibility("default")))
#elif defined(QV_STATIC)
#define QV_API
#elif defined(QV_BUILDING)
#define QV_API __declspec(dllexport)
#else
#define QV_API __declspec(dllimport)
#endif
