#pragma once

#include "host/render/progress.h"

#include <memory>
#include <ostream>

namespace host::report {

enum class ProgressStyle { automatic, plain, jsonl, none };

// What people are told: what is wrong, and from each level on: notices, progress, every detail.
enum class LogLevel { error, warning, info, debug };

// automatic: a bar with the time left where `out` is a terminal, plain lines elsewhere; jsonl: one
// JSON object a line and event, whatever the level. `out` outlives the result.
std::unique_ptr<render::Progress> make_progress(ProgressStyle style, LogLevel level, std::ostream& out,
                                                bool terminal);

}  // namespace host::report
