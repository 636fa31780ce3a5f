#pragma once

#include "host/node/knob.h"

#include <string>
#include <string_view>
#include <vector>

namespace host::nodes {

// The library takes any text for a channel and falls back where it means nothing. These tell a person
// instead, before the first frame.

// The text as "rgba.red", also where it names the channel alone.
std::string with_layer(std::string_view text);

// Whether a knob holds a channel, or with nothing or "none" no channel at all; else what is wrong.
std::vector<std::string> check_channel(const node::Knobs& knobs, std::string_view knob);

// A routing in words, "r=alpha a=white b=second.blue" (output channel, then what it gets), as the six
// words a route that the library reads; any other text as it is.
std::string routing_text(const std::string& text);

// Whether a text routes channels as a shuffle node takes it; else what is wrong with it.
std::vector<std::string> check_routing(const std::string& text);

}  // namespace host::nodes
