#pragma once

#include <atomic>

namespace host::gpu {

// While it lives, a flag ends a draw that is under way: every draw, the library's too, reaches the
// driver in bands of rows that are awaited, a first small one that is timed and then such as take about
// a tenth of a second. What is left of a draw once the flag is raised is not drawn, and whoever raised
// it drops the image. Pixels are the same as without. A device draws fast enough to need none of it;
// a software driver may be a minute over one draw.
// GL thread only, while a GpuContext is; one at a time.
class StoppableDraws {
 public:
  explicit StoppableDraws(const std::atomic<bool>& stop);  // which outlives it
  ~StoppableDraws();
  StoppableDraws(const StoppableDraws&) = delete;
  StoppableDraws& operator=(const StoppableDraws&) = delete;
};

}  // namespace host::gpu
