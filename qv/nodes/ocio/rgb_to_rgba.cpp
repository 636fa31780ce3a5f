#include <qv/nodes/ocio/splice.h>

namespace qv::nodes::ocio {

void rgb_to_rgba(const float* rgb, size_t n, float* rgba) {
  for (size_t i = 0; i < n; ++i) {
    rgba[4 * i + 0] = rgb[3 * i + 0];
    rgba[4 * i + 1] = rgb[3 * i + 1];
    rgba[4 * i + 2] = rgb[3 * i + 2];
    rgba[4 * i + 3] = 1;
  }
}

}  // namespace qv::nodes::ocio
