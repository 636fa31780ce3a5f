#pragma once

#include "host/nodes/node.h"

#include <string>

namespace host::nodes {

// The catalogue in words.

// One node type for people: inputs and knobs with kinds, defaults, ranges, choices and help.
std::string describe(const NodeType& type);

// All node types, a line each, by family.
std::string describe_catalogue();

}  // namespace host::nodes
