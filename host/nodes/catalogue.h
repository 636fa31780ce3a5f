#pragma once

#include "host/node/node.h"

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace host::nodes {

// Every node type there is, family by family in the order of families.h. Made at the first call;
// thread-safe. Compositions are checked against it, and both `quorvel nodes` and the JSON schema are
// printed from it, so that none of them can differ.
std::span<const node::NodeType> catalogue();

// Null when there is no such type.
const node::NodeType* find_type(std::string_view name);

}  // namespace host::nodes
