#pragma once

#include <qv/export.h>

#include <string>

namespace qv {

// Versions of this library and of the OpenImageIO that reads its files, for a host to show and to
// compare. Thread-safe.

// The version of these headers, for #if and static_assert: major * 10000 + minor * 100 + patch.
#define QV_VERSION 100
inline constexpr int version_major = QV_VERSION / 10000;
inline constexpr int version_minor = QV_VERSION / 100 % 100;
inline constexpr int version_patch = QV_VERSION % 100;

// The version of the library that is loaded, "0.1.0".
QV_API const char* core_version();

// The OpenImageIO headers that this library was compiled against, in four parts: "2.4.7.1".
QV_API std::string oiio_header_version();

// The OpenImageIO loaded into this process, in three parts: "2.4.7". Not comparable as text with
// oiio_header_version, which has one part more. Loads it where no file has been read through it yet; "" where
// that fails.
QV_API std::string oiio_runtime_version();

// The folder that the loaded library lies in, absolute, in UTF-8 and without a slash at its end, for hosts
// that keep modules beside it; that of the program where the library is a part of it. "" where the system
// does not say. Thread-safe.
QV_API std::string library_folder();

}  // namespace qv
