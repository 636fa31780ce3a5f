#pragma once

#include "host/render/progress.h"

#include <memory>
#include <ostream>

namespace host::report {

enum class ProgressStyle { automatic, plain, jsonl, none };

// automatic: a bar with the time left where `out` is a terminal, plain lines elsewhere; jsonl: one
// JSON object a line and event. `out` outlives the result.
std::unique_ptr<render::Progress> make_progress(ProgressStyle style, std::ostream& out, bool terminal);

}  // namespace host::report
