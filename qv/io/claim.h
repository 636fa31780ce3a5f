#pragma once

#include <qv/io/file_attributes.h>

#include <cstdint>
#include <optional>
#include <string>

#include <OpenImageIO/imageio.h>

namespace qv::io {

// What keeps a small file with a damaged header from taking the process down: such a header can claim
// any width, some codecs then deliver that many pixels of nothing, and a system that grants more memory
// than it has kills whoever writes to it. So an image of over 1 GiB, or with rows of over 4 MiB, is judged
// before its pixels are allocated, by facts alone: what its codec can at most make of the file's bytes, and
// the memory that there is. Smaller ones and codecs without a bound are believed.

// Bytes that the system and the process's control groups can still give, free swap included; nothing
// where they do not say. Linux: MemAvailable; a group's limit less what its processes hold.
std::optional<uint64_t> available_memory();

// False for over 1 GiB where less is available, which is asked only then.
bool fits_memory(uint64_t bytes);

// What is said of an image that has samples in place of pixels.
constexpr const char* deep_text = "a deep image has no pixels to read as floats; flatten it first";

// Why an image of a file is not to be read as floats; empty when nothing speaks against it. `format` is
// OpenImageIO's name of the reader. Thread-safe, as all of these.
std::string refusal(const OIIO::ImageSpec& spec, const std::string& format, const FileAttributes& file);

}  // namespace qv::io
