#pragma once

#include "host/decode/difference.h"

#include <string>

namespace host::report {

// A line a channel that differs, under the two names; for images that are the same one line.
std::string difference_text(const std::string& first, const std::string& second,
                            const decode::Difference& difference);

}  // namespace host::report
