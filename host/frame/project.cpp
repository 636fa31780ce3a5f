#include "host/frame/project.h"

#include <algorithm>
#include <cmath>

namespace host::frame {

node::Project make_project(const shot::Composition& composition, double scale, plates::Headers& headers,
                           bool by_content) {
  const auto scaled = [scale](int64_t side) {
    return std::max<int64_t>(1, std::llround(static_cast<double>(side) * scale));
  };
  node::Project project;
  project.format = {scaled(composition.format.width), scaled(composition.format.height),
                    composition.format.pixel_aspect};
  project.scale = scale;
  const auto [first, last] = std::minmax_element(composition.frames.begin(), composition.frames.end());
  project.first_frame = *first;
  project.last_frame = *last;
  project.folder = composition.folder.string();
  project.headers = &headers;
  project.by_content = by_content;
  return project;
}

}  // namespace host::frame
