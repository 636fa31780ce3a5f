#pragma once

#include <qv/version.h>

#include "host/general/general.h"

namespace host::general {

// What the module exports: a function without arguments under this name that gives a pointer to an Offer,
// which stands as long as the process.
inline constexpr const char* module_file = "libquorvel_host_images.so";
inline constexpr const char* offer_name = "quorvel_host_images";

// Both sides are compiled with this. The last two digits count what changed in general.h within one version.
inline constexpr int offer_version = QV_VERSION * 100 + 1;

struct Offer {
  int version = offer_version;
  const Library* library = nullptr;
};

}  // namespace host::general
