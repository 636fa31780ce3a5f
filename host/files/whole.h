#pragma once

#include <string>
#include <string_view>

namespace host::files {

// Whether a file goes on to where the image of one of its parts ends, of the kinds whose readers make up what
// is missing: a JPEG file has a mark there, whatever follows it, a TIFF file tells where each strip or tile
// lies, and a DPX file its size. True of other kinds. `format` is the reader's name for it. Reads no pixels.
// Thread-safe.
bool ends_whole(const std::string& path, std::string_view format, int part);

// What is said of one that does not.
constexpr const char* cut_text = "ends before its image does";

}  // namespace host::files
