#pragma once

#include "host/render_farm/job.h"

#include <string>

namespace host::render_farm {

// The batch script of a job's chunks, an array job that stands for itself: it renders its chunk, puts itself
// back into the queue when the renderer was told to end or was killed, and on the last try renders frame by
// frame.
std::string render_script(const Job& job);

// The batch script that verifies every frame once the chunks have ended; it leaves its exit code in the job's
// folder, as check_result finds it.
std::string check_script(const Job& job);

}  // namespace host::render_farm
