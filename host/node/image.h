#pragma once

#include "host/base/extent.h"
#include "host/base/memory_use.h"
#include "host/decode/pixels.h"
#include "host/files/metadata.h"
#include "host/gpu/texture.h"

#include <cstdint>
#include <memory>

namespace host::node {

struct PendingTransform;

// Pixels as a decoder left them, those of the image's whole window. Counted as decoded until the last holder
// lets go, on whatever thread.
struct Decoded {
  Decoded(decode::Pixels decoded, MemoryUse use);

  decode::Pixels pixels;
  Account account;
};

// What flows along a wire: RGBA, floats, premultiplied, linear, in a texture. A value: copies
// share the texture, nobody writes to a texture once its node has returned it.
//
// Not every alpha is coverage. Depth, vectors and ids have an alpha of 1 that says nothing, and a
// matte shows its alpha as its colour. Such an image has `coverage` false: it is not premultiplied, and
// nothing may divide it by its alpha. Operation::coverage says what a result is.
//
// No texture: no pixels, transparent black everywhere (an input that is not connected, an empty
// window). With `pending`, the texture holds the image before a chain of transforms that is still to
// be applied, and `extent` says where it will lie afterwards; only node types that declare
// `takes_pending` ever see such an image. With `decoded` in place of a texture, the pixels have not gone to
// the device, because nothing draws with them; only node types that write files ever see such an image.
struct Image {
  Extent extent;
  gpu::TexturePtr texture;
  std::shared_ptr<const PendingTransform> pending;
  bool coverage = true;
  files::MetadataPtr metadata = nullptr;  // what its file says beside the pixels, see Operation::metadata
  std::shared_ptr<const Decoded> decoded = nullptr;

  bool has_pixels() const {
    return texture || decoded;
  }
  // Of the texture, or the decoded pixels.
  uint64_t bytes() const {
    if (texture) return texture->bytes();
    return decoded ? decoded->pixels.bytes() : 0;
  }
};

}  // namespace host::node
