#pragma once

#include <qv/io/claim.h>

#include <string>

#include <OpenImageIO/imageio.h>

namespace qv::io::general {

// What is said of an image that has samples in place of pixels.
constexpr const char* deep_text = "a deep image has no pixels to read as floats; flatten it first";

// Why an image of a file is not to be read as floats; empty when nothing speaks against it. `format` is
// OpenImageIO's name of the reader. Thread-safe.
std::string refusal(const OIIO::ImageSpec& spec, const std::string& format, const FileAttributes& file);

}  // namespace qv::io::general
