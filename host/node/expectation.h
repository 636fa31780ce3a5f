#pragma once

#include "host/node/knob.h"

#include <string>

namespace host::node {

// What a knob takes, in words: "2 numbers from 0 to 1". Messages and listings share it.
std::string expectation(const KnobSpec& spec);

// A number as a person would write it: no fraction where there is none.
std::string number_text(double value);

}  // namespace host::node
