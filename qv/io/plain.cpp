#include <qv/io/decode.h>

#include <string>
#include <vector>

namespace qv::io {

bool is_plain(const OIIO::ImageSpec& spec) {
  const int full_width = spec.full_width ? spec.full_width : spec.width;
  const int full_height = spec.full_height ? spec.full_height : spec.height;
  return !spec.deep && spec.depth <= 1 && spec.channelnames == std::vector<std::string>{"R", "G", "B", "A"} &&
         spec.nchannels == 4 && spec.x == spec.full_x && spec.y == spec.full_y && spec.width == full_width &&
         spec.height == full_height;
}

}  // namespace qv::io
