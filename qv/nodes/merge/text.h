#pragma once

#include <qv/export.h>

#include <cstdint>
#include <string_view>

namespace qv::nodes::merge {

// Bytes of the texts that people type into nodes. Bytes are bytes: no locale and no encoding takes
// part, so a text means the same on every machine. Thread-safe.

// Whether a byte is white space, everywhere in the node texts: the space, 0x09 to 0x0D (tab to
// carriage return) and the separators 0x1C to 0x1F. Nothing else is, whatever the locale says.
constexpr bool is_white(char byte) {
  constexpr uint64_t white = 0x1F0003E00;  // bit b stands for byte b
  const auto value = static_cast<unsigned char>(byte);
  return value <= 0x20 && (white >> value & 1) != 0;
}

// The text without the white space at its ends: a view into `text`, empty when all of it is white.
QV_API std::string_view strip(std::string_view text);

// Whether no byte is 0x80 or above. True for an empty text.
QV_API bool is_ascii(std::string_view text);

}  // namespace qv::nodes::merge
