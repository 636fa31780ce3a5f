#pragma once

#include <qv/export.h>

#include <string_view>

namespace qv::nodes::merge {

// Bytes of the texts that people type into nodes. Bytes are bytes: no locale and no encoding takes
// part, so a text means the same on every machine. Thread-safe.

// Whether a byte is white space, everywhere in the node texts: the space, 0x09 to 0x0D (tab to
// carriage return) and the separators 0x1C to 0x1F. Nothing else is, whatever the locale says.
constexpr bool is_white(char byte) {
  return byte == 0x20 || (byte >= 0x09 && byte <= 0x0D) || (byte >= 0x1C && byte <= 0x1F);
}

// The text without the white space at its ends: a view into `text`, empty when all of it is white.
QV_API std::string_view strip(std::string_view text);

// Whether no byte is 0x80 or above. True for an empty text.
QV_API bool is_ascii(std::string_view text);

}  // namespace qv::nodes::merge
