#pragma once

#include "host/files/image_writer.h"

#include <cstdint>
#include <string>
#include <vector>

namespace host::files {

// The whole content of an image file, made in memory: what a full disk then spoils is a file that
// nobody has seen yet. Throws std::runtime_error that says what the format refused. Thread-safe.
std::vector<unsigned char> encode(const WriteJob& job);

// Why a path cannot be written to by its extension; empty when it can.
std::string unsupported_reason(const std::string& path);

}  // namespace host::files
