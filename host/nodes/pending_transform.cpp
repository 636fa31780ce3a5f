#include "host/nodes/pending_transform.h"

#include <stdexcept>

namespace host::nodes {

Image settle(const Image& image, RenderContext& /*context*/) {
  if (!image.pending) return image;
  throw std::logic_error("no transform can be pending");
}

}  // namespace host::nodes
