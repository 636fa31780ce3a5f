#pragma once

#include "host/base/extent.h"
#include "host/draw/held_images.h"
#include "host/files/metadata.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace host::draw {

// An image in host memory: RGBA float, premultiplied, rows top to bottom. A value: copies share the pixels,
// which nobody changes. They count as held, see HeldImages, until the last copy goes, and may outlive the
// renderer; on whatever thread.
struct FrameImage {
  std::string node;
  int64_t frame = 0;
  Extent extent;  // its window: where in the area the node made pixels
  Box area{};     // what the pixels are of
  bool coverage = true;
  files::MetadataPtr metadata;
  std::shared_ptr<const float[]> pixels;  // null where the area is empty
};

// What of an image is wanted: the area of its format, transparent black where it has no pixels, or its data
// window, which may be smaller, larger or empty.
enum class Area : uint8_t { format, window };

// What is wanted of frames.
struct ImageRequest {
  int node = 0;  // position in the composition
  Area area = Area::format;
  double scale = 0;                         // above 0 and at most 1; 0: the renderer's
  const std::atomic<bool>* stop = nullptr;  // once set, ends the drawing within a second
};

// Called once an image is there, or with why it cannot be.
using ImageDone = std::function<void(FrameImage image, const std::string& error)>;

}  // namespace host::draw
