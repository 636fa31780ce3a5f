#pragma once

#include "host/shot/problems.h"

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace host::shot::asked {

// Puts knobs given by hand, each as "node.knob=VALUE", into a composition's text, before it is read and
// checked. A value is JSON; where the knob is a text, a word is the text itself. A later one counts. What
// is wrong with them, found here or by the checks, is said of "--set" and not of the file.
void apply_settings(nlohmann::json& root, const std::vector<std::string>& settings, Problems& problems);

}  // namespace host::shot::asked
