#pragma once

namespace support {

// Which sanitizer this is compiled for, by clang or by g++.
#if defined(__has_feature)
constexpr bool address_sanitizer = __has_feature(address_sanitizer);
constexpr bool thread_sanitizer = __has_feature(thread_sanitizer);
#else
#define QV_DEFINED_AS_1(macro) (#macro[0] == '1')
#define QV_HAS(macro) QV_DEFINED_AS_1(macro)
constexpr bool address_sanitizer = QV_HAS(__SANITIZE_ADDRESS__);
constexpr bool thread_sanitizer = QV_HAS(__SANITIZE_THREAD__);
#endif

}  // namespace support
