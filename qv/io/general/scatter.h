#pragma once

#include <qv/io/layers.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace qv::io::general {

// The pixels of a read: width x height x channels values, interleaved. Halves of an OpenEXR file stay
// halves until they are scattered, which takes half the memory in between.
struct Layer {
  std::unique_ptr<float[]> floats;
  std::unique_ptr<uint16_t[]> halves;  // instead of the floats
};

// Of the reads, in their order.
using LayerPixels = std::vector<Layer>;

// Fills the outputs of load_layers from the layers read, in parallel on up to `threads` threads (0:
// OpenImageIO's default) when there are 65,536 pixels or more. The plan has been checked.
void scatter(const std::vector<Read>& reads, const LayerPixels& layers,
             const std::vector<std::array<Slot, 4>>& slots, int width, int height, int threads,
             const std::vector<float*>& outs);

}  // namespace qv::io::general
