#pragma once

#include <qv/gpu/gl/entry_points.h>

#include <cstdint>
#include <vector>

namespace host::gpu {

// While it lives, draws of the programs added to it, the library's too, reach the driver in another
// shape: the program gives several neighbouring pixels a fragment and stores them through image unit 0,
// to which the colour texture of the framebuffer is bound, and the viewport is as much smaller. The
// target is complete when the draw returns to those who read it in any way.
// GL thread only, while a GpuContext is; any number of them.
class WideDraws {
 public:
  WideDraws();
  ~WideDraws();
  WideDraws(const WideDraws&) = delete;
  WideDraws& operator=(const WideDraws&) = delete;

  // Pixels a fragment along x and y, and how many fragments above each other stand side by side, as far
  // as the target has so many rows. The program writes every pixel of an RGBA32F target.
  struct Shape {
    int across = 1;
    int down = 1;
    int fold = 1;
  };
  void add(uint32_t program, const Shape& shape);

 private:
  std::vector<uint32_t> programs_;
};

// The function through which draws go to the driver in the shape that it sees: others hook in here.
decltype(qv::gpu::gl::DrawElementsInstancedBaseInstance)& draw_as_seen();

}  // namespace host::gpu
