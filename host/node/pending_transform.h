#pragma once

#include <qv/xform/steps.h>

#include "host/base/extent.h"
#include "host/node/image.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace host::node {

class RenderContext;

// How pixels between pixels are found. cubic: Catmull-Rom, which keeps whole pixels as they are and
// stays sharp in between; next to hard edges it swings over by a few percent.
enum class Resampling : uint8_t { nearest, bilinear, cubic };

// When the shutter is open around a frame; width 0 means no motion blur.
struct Shutter {
  double frame = 0;    // the frame being rendered
  double open = 0;     // offset of the opening from the frame, in frames
  double width = 0;    // how long it is open, in frames
  double quality = 1;  // samples a pixel of travel
  bool operator==(const Shutter&) const = default;

  // The time at `part`, 0 to 1, of the way from opening to closing.
  double time(double part) const {
    return frame + open + width * part;
  }
};

// One transform of a chain as a step vector (transform, reformat or corner pin).
struct TransformLink {
  std::vector<double> step;                            // at the frame
  std::function<std::vector<double>(double time)> at;  // at other times; empty: it stands still
};

// Neighbouring transforms, first one first, folded into one resampling, so that a chain loses no
// sharpness and costs one draw. Made and extended by the transform nodes; applied by `settle`. The
// functions in `links` refer to the catalogue alone: an image may outlive the composition that asked for it.
struct PendingTransform {
  Extent source;  // of the texture, before the chain
  std::vector<TransformLink> links;
  Resampling filter = Resampling::cubic;  // of the last node whose pixels fall between pixels
  Shutter shutter;
  bool cuts = false;     // a reformat took pixels away, as `Fit` has it
  size_t clip_from = 0;  // the first link whose clip counts: those before it took nothing away, and
                         // what a later link spreads lies beyond them
};

// What the links amount to for an image of this format, at a time or else at the frame.
qv::xform::Total total_of(std::span<const TransformLink> links, const Format& format,
                          std::optional<double> time = std::nullopt);

// How the links take pixels to pixels.
struct Fit {
  bool exact = false;  // stands still, and every pixel falls on one pixel
  bool cuts = false;   // a reformat's clip takes away more than the resampling spreads
};
Fit fit(std::span<const TransformLink> links, const Extent& source, const Shutter& shutter);

// Where an image lies after some links, with all that the shutter sees and the resampling spreads; empty
// where a link has no matrix.
// A window without bounds, of an image that meets its horizon, is the format's. One of more than four
// million pixels, and more than four times as large as both the format and the image, is held to the
// format and half of it around: a zoom into an image does not take memory for what nobody will see.
Box placement(std::span<const TransformLink> links, const Extent& source, Resampling filter,
              const Shutter& shutter);

// The image with its pending transform applied (sampled over the shutter, clipped where a reformat
// says so); an image without one comes back as it is. What lies behind the horizon is transparent; a
// chain that cannot be inverted gives an image without pixels. A move by whole pixels draws nothing:
// it shares the texture. GL thread only.
Image settle(const Image& image, RenderContext& context);

}  // namespace host::node
