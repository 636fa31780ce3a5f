#pragma once

#include "host/node/node.h"
#include "host/shot/problems.h"

#include <vector>

#include <nlohmann/json.hpp>

namespace host::shot {

// The nodes of a list, connected by position and in the order given. What is wrong is reported; the
// result then is only good for looking for more faults.
std::vector<node::Node> parse_nodes(const nlohmann::json& list, Problems& problems);

// The nodes reordered upstream first, otherwise as they stood. A circle is reported, node by node.
std::vector<node::Node> upstream_first(std::vector<node::Node> given, Problems& problems);

}  // namespace host::shot
