#pragma once

#include "host/node/node.h"

#include <string>

namespace host::report {

// The catalogue in words.

// One node type for people: inputs and knobs with kinds, defaults, ranges, choices and help.
std::string describe(const node::NodeType& type);

// All node types, a line each, by family.
std::string describe_catalogue();

}  // namespace host::report
