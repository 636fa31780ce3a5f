#pragma once

#include "host/decode/sources.h"
#include "host/plates/headers.h"
#include "host/plates/open_file.h"

#include <memory>
#include <string>
#include <vector>

namespace host::decode {

// Reads layers of one file, all in one go, through the layer reader; a file's only image through the
// general reader unless `layered`; ids by themselves. One result a layer, in their order. Throws
// std::runtime_error that names the path. `file`, where it is not null, is the file, open. Thread-safe.
std::vector<Pixels> read_layers(const std::string& path, std::shared_ptr<plates::OpenFile> file,
                                const std::vector<plates::Layer>& layers, bool layered, int threads);

// Room for the pixels of a window, RGBA float, not initialised. Throws std::bad_alloc.
std::shared_ptr<float[]> pixel_buffer(const Box& window);

}  // namespace host::decode
