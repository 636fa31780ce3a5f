#pragma once

#include "host/plan/plan.h"
#include "host/shot/composition.h"

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace host::report {

// What a composition is, and what rendering it would do, in words.

// A plan for people, a line a file and one for the results.
std::string plan_text(const plan::FramePlan& plan);

// Where nodes that write no file go when they are looked at, a line each for the first frame.
std::string quick_look_text(const shot::Composition& composition, const plan::Targets& targets,
                            const std::vector<int64_t>& frames);

// What keeps frames from being rendered, a line each up to a screenful.
std::string problems_text(const std::vector<std::string>& problems);

// What a composition is made of, for people, with those lines at the end.
std::string info_text(const shot::Composition& composition, const plan::Planner& planner,
                      const std::vector<std::string>& problems);

// The same as JSON, see docs/info.md.
nlohmann::ordered_json info_json(const shot::Composition& composition, const plan::Planner& planner,
                                 const std::vector<std::string>& problems);

// The composition as a Graphviz graph, a box a node, an arrow an input.
std::string graphviz(const shot::Composition& composition);

}  // namespace host::report
