#pragma once

#include "host/plan/plan.h"
#include "host/render/renderer.h"

namespace host::render {

// What comes before a run's first frame: plans every frame of `options`, and notes there which of them stay
// and which fail for what stands in their place. Then removes what earlier runs left half written where this
// one will write; nothing is touched where frames fail that `keep_going` does not pass over, and nothing is
// to be rendered then. Throws TargetError, and Interrupted once the options' stop is set.
plan::Outlook prepare(plan::Planner& planner, RunOptions& options);

// Whether such a run is not to be begun.
bool refused(const plan::Outlook& outlook, const RunOptions& options);

}  // namespace host::render
