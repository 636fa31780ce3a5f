#pragma once

#include "host/node/knob.h"
#include "host/shot/problems.h"

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace host::shot {

// The curve of {"keys": [[frame, value, interpolation], ...], "extrapolate": true}. Nothing, with what
// is wrong reported, when keys are malformed, out of order, or outside the knob's limits.
std::optional<node::KnobComponent> parse_curve(const nlohmann::json& object, const node::KnobSpec& spec,
                                               const std::string& place, Problems& problems);

}  // namespace host::shot
