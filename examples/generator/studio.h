#pragma once

#include <string>
#include <vector>

namespace plates {

// One part of a rendering of many: interleaved channels, rows top to bottom.
struct Pass {
  std::string name;
  std::vector<std::string> channels;
  bool half = true;  // else float
  std::vector<float> values;
};

// Glazed balls over a lake, seen by an eye so far to the right of the middle, in metres: parts "beauty" (with
// alpha, the sum of the three that follow), "diffuse", "specular", "reflection", and "depth", the distance
// along the view, 1000 where nothing is. Premultiplied, linear.
std::vector<Pass> trace_studio(int width, int height, float eye);

}  // namespace plates
