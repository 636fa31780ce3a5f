#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace host::files {

// A path as people type it, with "~" in front and $NAME or ${NAME} anywhere replaced by what the
// environment says; "$$" is a dollar sign. Throws std::runtime_error that names what is not set.
// Thread-safe while nobody changes the environment.
std::string expanded(std::string_view path);

// The file that a name leads to, absolute and without dots: links are followed, the last one
// included, whether or not anything stands at their end. Two names of one file give one result.
// Thread-safe; costs a look at every folder on the way.
std::filesystem::path followed(const std::filesystem::path& path);

}  // namespace host::files
