#pragma once

#include "host/shot/composition.h"
#include "host/shot/problems.h"

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace host::shot::asked {

// The views of a composition that are to be rendered: its "views", or those of them asked for.
std::vector<std::string> parse_views(const nlohmann::json& value, const std::vector<std::string>& asked,
                                     Problems& problems);

// Puts every node that depends on a view, by %V or %v in its own paths or upstream, there once a view, with
// these filled in; the others stay as they are and serve all views. Outputs go along.
void spread_over_views(Composition& composition, Problems& problems);

}  // namespace host::shot::asked
