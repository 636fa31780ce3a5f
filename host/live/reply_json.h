#pragma once

#include "host/live/document.h"
#include "host/live/render_job.h"
#include "host/live/session/session.h"

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace host::live {

// What the server says, in the shapes of page/src/protocol.ts.
using Json = nlohmann::ordered_json;

// As text; bytes that are no UTF-8 come as U+FFFD.
std::string dumped(const Json& json);

Json info_json(const Document::State& document, const std::string& path);
Json text_json(const Document::State& document, const std::string& path);

// {"problems": [...]} of a CompositionError's text.
Json problems_json(std::string_view text, std::string_view file);

// A number, or "nan", "inf", "-inf", which JSON has no numbers for.
Json value_json(double value);

Json catalogue_json();
Json render_json(const RenderState& state);

// What stands in front of an image's pixels. `full` is the format at full size.
Json frame_json(const session::Drawn& drawn, const Format& full);

// The event that says what each node of an image took.
Json nodes_json(const session::Drawn& drawn);

}  // namespace host::live
