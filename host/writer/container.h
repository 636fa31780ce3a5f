#pragma once

#include "host/writer/image_writer.h"

#include <string>

namespace host::writer {

// What the file types that can be written have to offer. All functions are thread-safe.

enum class Container { unknown, exr, png, tiff, jpeg, dpx };

// By the path's extension.
Container container_of(const std::string& path);

// A channel's value as it is stored: a whole number or a floating one of so many bytes.
struct StoredType {
  int bytes = 0;
  bool floats = false;
};

// How a channel is stored; `depth` is one that the container has.
StoredType stored_type(Container container, OutputFile::Depth depth);

// Bits of a whole number that is stored so.
int stored_bits(Container container, OutputFile::Depth depth);

// Why a path cannot be written to by its extension; empty when it can.
std::string unsupported_reason(const std::string& path);

// What a file of a known type does not have: `knob "depth": .png files have no "half"; they have ...`;
// empty when it has all. So it is with `channels`, `compression`, `parts` and inputs beside the main image.
std::string wrong_setting(const OutputFile& file);

// Whether all of a writer's threads make the file together; else each makes one by itself.
bool packed_by_all(const std::string& path);

// Whether colour is encoded with the sRGB curve: as asked, else in PNG and JPEG, which viewers show as they
// are.
bool is_srgb(const OutputFile& file);

}  // namespace host::writer
