#pragma once

#include "host/base/spans.h"

#include <string>
#include <vector>

namespace host::live::session {

// Stretches of work as a Chrome trace: JSON with a row for each kind of work, and a further one wherever two
// of a kind overlap. Times count from the first.
std::string chrome_trace(std::vector<Spans::Span> spans);

}  // namespace host::live::session
