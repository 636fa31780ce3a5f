#pragma once

#include "host/extent.h"
#include "host/nodes/image.h"

#include <cstdint>
#include <functional>
#include <vector>

namespace host::nodes {

class RenderContext;

enum class Resampling : uint8_t { nearest, bilinear, cubic };

// When the shutter is open around a frame; width 0 means no motion blur.
struct Shutter {
  double frame = 0;    // the frame being rendered
  double open = 0;     // offset of the opening from the frame, in frames
  double width = 0;    // how long it is open, in frames
  double quality = 1;  // samples a pixel of travel
  bool operator==(const Shutter&) const = default;
};

// One transform of a chain: its step vector (transform, reformat or corner pin) at any time.
struct TransformLink {
  std::function<std::vector<double>(double time)> step;
  bool moves = false;  // follows the shutter; otherwise it stands as at the frame
};

// Neighbouring transforms, first one first, folded into one resampling, so that a chain loses no
// sharpness and costs one draw. Made and extended by the transform nodes; applied by `settle`. The
// functions in `links` refer to the composition, which outlives every image.
struct PendingTransform {
  Extent source;  // of the texture, before the chain
  std::vector<TransformLink> links;
  Resampling filter = Resampling::cubic;  // of the last node of the chain
  Shutter shutter;
};

// The image with its pending transform applied (sampled over the shutter, clipped where a reformat
// says so); an image without one comes back as it is. A chain that cannot be inverted, or that puts
// the image behind the horizon, gives an image without pixels. GL thread only.
Image settle(const Image& image, RenderContext& context);

}  // namespace host::nodes
