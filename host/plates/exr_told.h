#pragma once

#include <qv/io/exr_file.h>

#include "host/plates/part_info.h"

namespace host::plates {

// What a common EXR file says of itself and of so many parts at most, but for its metadata. Thread-safe.
FileTold told_by(const qv::io::ExrFile& file, int most_parts);

}  // namespace host::plates
