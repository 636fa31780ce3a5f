#pragma once

#include "host/render/prediction.h"

#include <string>

namespace host::report {

// For people, a line for the process and one for its owners.
std::string prediction_text(const render::Prediction& prediction);

}  // namespace host::report
