#pragma once

#include "host/draw/stats.h"

#include <string>

namespace host::report {

std::string stats_text(const draw::Stats& stats);  // for people, a line a group
std::string stats_json(const draw::Stats& stats);  // every field under its name

}  // namespace host::report
