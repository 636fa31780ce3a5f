#pragma once

#include "host/render/stats.h"

#include <string>

namespace host::report {

std::string stats_text(const render::Stats& stats);  // for people, a line a group
std::string stats_json(const render::Stats& stats);  // every field under its name

}  // namespace host::report
