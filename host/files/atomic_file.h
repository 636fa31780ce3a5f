#pragma once

#include <filesystem>
#include <span>

namespace host::files {

// Puts a file under its name whole or not at all: written beside it as ".NAME.HOST.BOOT.PID.part",
// flushed to the disk, renamed. Missing folders are made. Throws std::runtime_error with what the system
// said; the name then holds what it held before, and nothing is left beside it. A link is written through. A
// stream is written to as it stands, which waits for a pipe's reader.
void write_whole(const std::filesystem::path& name, std::span<const unsigned char> content);

// Whether something stands there that writing would replace: all but a stream, a pipe, a device or a
// socket, which keeps what is written to it.
bool would_replace(const std::filesystem::path& path);

// Removes the ".part" files of runs that ended without tidying up: this host's, whose process is gone
// or from before its last start, and those of other hosts after a day. Returns how many. A folder that
// does not exist has none.
int remove_leftovers(const std::filesystem::path& folder);

}  // namespace host::files
