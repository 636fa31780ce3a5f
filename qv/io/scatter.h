#pragma once

#include <qv/io/layers.h>

#include <memory>
#include <vector>

namespace qv::io {

// The pixels of the reads, in their order: width x height x channels floats each.
using LayerPixels = std::vector<std::unique_ptr<float[]>>;

// Fills the outputs of load_layers from the layers read, in parallel on up to `threads` threads (0:
// OpenImageIO's default) when there are 65,536 pixels or more. The plan has been checked.
void scatter(const std::vector<Read>& reads, const LayerPixels& layers,
             const std::vector<std::array<Slot, 4>>& slots, int width, int height, int threads,
             const std::vector<float*>& outs);

}  // namespace qv::io
