#pragma once

#include "host/base/extent.h"
#include "host/files/metadata.h"
#include "host/gpu/texture.h"

#include <memory>

namespace host::node {

struct PendingTransform;

// What flows along a wire: RGBA, 32-bit float, premultiplied, linear, in a texture. A value: copies
// share the texture, nobody writes to a texture once its node has returned it.
//
// Not every alpha is coverage. Depth, vectors and ids have an alpha of 1 that says nothing, and a
// matte shows its alpha as its colour. Such an image has `coverage` false: it is not premultiplied, and
// nothing may divide it by its alpha. Operation::coverage says what a result is.
//
// No texture: no pixels, transparent black everywhere (an input that is not connected, an empty
// window). With `pending`, the texture holds the image before a chain of transforms that is still to
// be applied, and `extent` says where it will lie afterwards; only node types that declare
// `takes_pending` ever see such an image.
struct Image {
  Extent extent;
  gpu::TexturePtr texture;
  std::shared_ptr<const PendingTransform> pending;
  bool coverage = true;
  files::MetadataPtr metadata = nullptr;  // what its file says beside the pixels, see Operation::metadata
};

}  // namespace host::node
