#pragma once

#include "host/files/image_writer.h"

#include <string>

#include <OpenImageIO/typedesc.h>

namespace host::files {

// What the file types that can be written have to offer. All functions are thread-safe.

enum class Container { unknown, exr, png, tiff };

// By the path's extension.
Container container_of(const std::string& path);

// How a channel is stored; `depth` is one that the container has.
OIIO::TypeDesc stored_type(Container container, OutputFile::Depth depth);

}  // namespace host::files
