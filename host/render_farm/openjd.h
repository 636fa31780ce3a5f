#pragma once

#include "host/render_farm/job.h"

#include <string>

namespace host::render_farm {

// The job as a template of Open Job Description, version jobtemplate-2023-09: a step that renders chunks, and
// one that verifies every frame after it. Chunks are lists of frames, at most 1,024; with `task_chunking`
// the runner makes them, by the extension of that name, which older ones refuse. JSON, or YAML.
std::string open_job(const Job& job, bool task_chunking, bool yaml);

}  // namespace host::render_farm
