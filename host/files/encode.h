#pragma once

#include "host/files/image_writer.h"

#include <cstdint>
#include <string>
#include <vector>

namespace host::files {

struct Encoded {
  std::vector<unsigned char> content;
  std::string notice;  // pixels that the file cannot hold as they are, counted; empty when there are none
};

// The whole content of an image file, made in memory: what a full disk then spoils is a file that
// nobody has seen yet. Throws std::runtime_error that says what the format refused. Thread-safe.
Encoded encode(const WriteJob& job);

// Why a path cannot be written to by its extension; empty when it can.
std::string unsupported_reason(const std::string& path);

// What a file of a known type does not have: `knob "depth": .png files have no "half"; they have ...`;
// empty when it has all.
std::string wrong_setting(const OutputFile& file);

// Whether colour is encoded with the sRGB curve: as asked, else in PNG, which viewers show as it is.
bool is_srgb(const OutputFile& file);

// The text by which files that have no other way say whether their colour is encoded.
const char* color_note(bool srgb);

}  // namespace host::files
