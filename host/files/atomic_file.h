#pragma once

#include <filesystem>
#include <span>

namespace host::files {

// Puts a file under its name whole or not at all: written beside it as ".NAME.PID.part", flushed to
// the disk, renamed. Missing folders are made. Throws std::runtime_error with what the system said;
// the name then holds what it held before, and nothing is left beside it.
void write_whole(const std::filesystem::path& path, std::span<const unsigned char> content);

// Removes the ".part" files of runs that ended without tidying up: those whose process is gone.
// Returns how many. A folder that does not exist has none.
int remove_leftovers(const std::filesystem::path& folder);

}  // namespace host::files
