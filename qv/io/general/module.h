#pragma once

#include <qv/io/general_reader.h>

namespace qv::io::general {

// The reader, for the library whose version is `version` alone; null for others.
const GeneralReader* reader_for(const char* version);

// The name under which a module offers that, of this type.
constexpr const char* entry = "quorvel_core_general_reader";
using Entry = const void*(const char* version);

}  // namespace qv::io::general
