#pragma once

#include "host/node/knob.h"
#include "host/shot/problems.h"

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace host::shot {

// The values of a node's knobs, one a spec: from `given` (an object by knob name) where it has them,
// else the defaults. What is wrong is reported with `place` and the knob in front, and the default
// stands in its stead.
std::vector<node::KnobValue> parse_knobs(const std::vector<node::KnobSpec>& specs,
                                         const nlohmann::json& given, const std::string& place,
                                         Problems& problems);

}  // namespace host::shot
