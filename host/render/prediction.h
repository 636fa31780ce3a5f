#pragma once

#include "host/base/memory_use.h"
#include "host/gpu/gpu_context.h"
#include "host/render/renderer.h"
#include "host/shot/composition.h"

#include <cstdint>

namespace host::render {

// The memory of a run at its peak, in bytes.
struct Prediction {
  uint64_t base = 0;          // of the process without images: libraries, driver, programs; 0: unknown
  Holdings images;            // by owner
  bool device_apart = false;  // textures lie in a memory of their own

  // Of the process.
  uint64_t bytes() const {
    return base + images.sum() - (device_apart ? images.of(Owner::device) : 0);
  }
};

// Rehearses a run: every frame goes through the renderer's own evaluation, with textures of one texel in
// place of images, and no file is opened but for its header. So programs are compiled and drawn with,
// and results live as long as they will. Assumed of what works beside the drawing: that decoders and encoders
// have as much under way as they may, and that files cannot be packed. Frames that fail are passed over.
// Takes options as a renderer does. GL thread only, with no renderer beside it; about a millisecond a node
// and frame. Throws programs::ShaderError.
Prediction predict(const shot::Composition& composition, const RenderOptions& options,
                   gpu::GpuContext& context);

}  // namespace host::render
