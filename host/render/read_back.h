#pragma once

#include "host/node/image.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace host::render {

// Buffers in host memory that are used again and again, because fresh memory costs as much as
// filling it. Thread-safe; a buffer outlives the pool if it must.
class BufferPool {
 public:
  // Room for this many floats, undefined contents. Comes back when the last holder lets go.
  std::shared_ptr<float[]> acquire(size_t floats);

 private:
  struct Spare {
    std::mutex mutex;
    size_t floats = 0;  // of each buffer; those of another size are not kept
    std::vector<std::unique_ptr<float[]>> buffers;
  };
  std::shared_ptr<Spare> spare_ = std::make_shared<Spare>();
};

// Pixels that have left the GPU; rgba is null when the driver let the transfer down.
struct ReadBack {
  Box window{};
  std::shared_ptr<const float[]> rgba;
};

// Starts reading the part of an image that lies in `area` through the transfer ring. The texture may
// be drawn into by later calls at once. `done` runs on the ring's thread, in order of the calls. An
// image without pixels there gives one transparent pixel, because no file can have none. Waits while
// every slot of the ring is in flight. Returns the ticket to wait for, 0 when `done` has run already.
// GL thread only.
uint64_t read_back(const node::Image& image, const Box& area, BufferPool& buffers,
                   std::function<void(ReadBack)> done);

}  // namespace host::render
