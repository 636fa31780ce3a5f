#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace host::files {

// File names with a frame number in them: "plate.####.exr" (as many digits as there are #) or
// "plate.%04d.exr". The last such run of the name counts; a negative frame keeps its sign in front
// of the digits. All functions are thread-safe.

bool has_frame(std::string_view pattern);

// The name at a frame; a pattern without a frame number is returned as it stands.
std::string frame_path(std::string_view pattern, int64_t frame);

// The frame at which the pattern has this name, if there is one.
std::optional<int64_t> frame_of(std::string_view pattern, std::string_view name);
// Names may also hold a view: "%V" is its whole name, "%v" its first letter.
bool has_view(std::string_view pattern);
std::string view_path(std::string_view pattern, std::string_view view);

}  // namespace host::files
