#pragma once

#include "host/nodes/node.h"

#include <string>

namespace host::nodes {

// The catalogue in words and as a schema. Both are printed from the same rows.

// One node type for people: inputs and knobs with kinds, defaults, ranges, choices and help.
std::string describe(const NodeType& type);

// All node types, a line each, by family.
std::string describe_catalogue();

// JSON schema (draft 2020-12) of compositions, that editors complete and check against. The file
// docs/composition.schema.json is this text; a test holds them together.
std::string composition_schema();

}  // namespace host::nodes
